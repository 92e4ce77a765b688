#include "Completion.h"

namespace {

std::string kindOf(const Argument& argument)
{
    switch (argument.takes) {
    case Takes::nothing:
        return "nothing";
    case Takes::text:
        return "text";
    case Takes::number:
        return "number";
    case Takes::size:
        return "size";
    case Takes::file:
        return "file";
    case Takes::folder:
        return "folder";
    case Takes::cookie:
        return "cookie";
    case Takes::cookieOrFile:
        return "cookie-or-file";
    case Takes::choice:
        return "choice:" + joinedWords(argument.choices, ",");
    case Takes::location:
        break;
    }
    return argument.choices.empty() ? "location" : "location:" + joinedWords(argument.choices, ",");
}

std::string takesLine(const CommandNode& command)
{
    std::vector<std::string> commands;
    std::vector<std::string> flags;
    std::vector<std::string> valued;
    std::vector<std::string> arguments;
    for (const CommandNode& below : command.commands)
        commands.push_back(below.words.back());
    for (const Argument& option : ownOptions(command))
        (option.takes == Takes::nothing ? flags : valued).push_back(option.names.back());
    for (const Argument& argument : command.positionals)
        arguments.push_back(kindOf(argument) + (argument.repeats ? "..." : ""));
    const auto assigned = [](const char* name, const std::vector<std::string>& words) {
        return words.empty() ? std::string() : std::string(" ") + name + "='" + joinedWords(words, " ") + "'";
    };
    const std::string assignments = assigned("commands", commands) + assigned("flags", flags) +
                                    assigned("valued", valued) + assigned("arguments", arguments);
    return assignments.empty() ? "" : "    '" + lineBehind(command) + "')" + assignments + " ;;\n";
}

std::string behindLines(const CommandNode& command)
{
    std::string lines;
    for (const Argument& option : ownOptions(command)) {
        const std::string kind = kindOf(option);
        if (option.takes != Takes::nothing && option.takes != Takes::text)
            lines +=
                "    '" + lineBehind(command) + " " + option.names.back() + "') echo '" + kind + "' ;;\n";
    }
    return lines;
}

std::string withoutLastBreak(std::string text)
{
    if (text.ends_with('\n'))
        text.pop_back();
    return text;
}

}  // namespace

std::string bashCompletion(const CommandNode& tree, std::string script)
{
    std::string takes;
    std::string behind;
    for (const CommandNode* command : allOf(tree)) {
        takes += takesLine(*command);
        behind += behindLines(*command);
    }
    fillGap(script, "TAKES", withoutLastBreak(takes));
    fillGap(script, "BEHIND", withoutLastBreak(behind));
    return script;
}
