#include "Completion.h"

#include <algorithm>

namespace {

std::string quotedForFish(const std::string& text)
{
    std::string doubled;
    for (const char letter : text)
        doubled += letter == '\\' ? "\\\\" : std::string(1, letter);
    return quoted(doubled, "\\'");
}

// What the value is completed with; files only where files are meant.
std::string valueOf(const Argument& argument)
{
    switch (argument.takes) {
    case Takes::nothing:
        return {};
    case Takes::file:
        return " -F";
    case Takes::cookieOrFile:
        return " -F -a '(__fsys_cookies)'";
    case Takes::folder:
        return " -f -a '(__fish_complete_directories)'";
    case Takes::cookie:
        return " -f -a '(__fsys_cookies)'";
    case Takes::choice:
        return " -f -a '" + joinedWords(argument.choices, " ") + "'";
    case Takes::location:
        return " -f -a '(__fsys_locations) " + joinedWords(argument.choices, " ") +
               " (__fish_complete_directories)'";
    case Takes::text:
    case Takes::number:
    case Takes::size:
        break;
    }
    return " -f";
}

std::string rule(const std::string& condition) { return "complete -c fsys -n " + quotedForFish(condition); }

std::string at(const CommandNode& command) { return "__fsys_at \"" + lineBehind(command) + "\""; }

std::string optionRules(const CommandNode& command)
{
    std::string rules;
    for (const Argument& option : ownOptions(command)) {
        // What the top knows every command knows.
        rules += command.words.size() == 1 ? "complete -c fsys" : rule(at(command));
        for (const std::string& name : option.names)
            rules += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
        if (option.takes != Takes::nothing)
            rules += " -r" + valueOf(option);
        rules += " -d " + quotedForFish(option.meaning) + "\n";
    }
    return rules;
}

std::string argumentRules(const CommandNode& command)
{
    std::string rules;
    for (std::size_t i = 0; i < command.positionals.size(); ++i) {
        const Argument& argument = command.positionals[i];
        const std::string value = valueOf(argument);
        if (value != " -f")
            rules += rule("__fsys_argument \"" + lineBehind(command) + "\" " + std::to_string(i + 1) +
                          (argument.repeats ? "-" : "")) +
                     value + "\n";
    }
    return rules;
}

std::string commandRules(const CommandNode& command)
{
    std::string rules;
    for (const CommandNode& below : command.commands)
        rules += rule("__fsys_argument \"" + lineBehind(command) + "\" 1") + " -a " + below.words.back() +
                 " -d " + quotedForFish(below.summary) + "\n";
    return rules;
}

}  // namespace

std::string fishCompletion(const CommandNode& tree, std::string script)
{
    std::vector<std::string> valued;
    std::vector<std::string> lines;
    std::string rules;
    for (const CommandNode* command : allOf(tree)) {
        rules += commandRules(*command) + optionRules(*command) + argumentRules(*command);
        if (command != &tree)
            lines.push_back(quotedForFish(lineBehind(*command)));
        for (const Argument& option : ownOptions(*command))
            if (option.takes != Takes::nothing && std::ranges::count(valued, option.names.back()) == 0)
                valued.push_back(option.names.back());
    }
    fillGap(script, "VALUED", joinedWords(valued, " "));
    fillGap(script, "LINES", joinedWords(lines, " "));
    rules.pop_back();
    fillGap(script, "RULES", rules);
    return script;
}
