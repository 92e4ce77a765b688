#include "Completion.h"

namespace {

std::string quotedForZsh(const std::string& text) { return quoted(text, "'\\''"); }

// Brackets and colons have a meaning of their own in what _arguments and _describe are told.
std::string plain(const std::string& text)
{
    std::string out;
    for (const char letter : text)
        out += letter == ':' || letter == '[' || letter == ']' || letter == '\\' ? std::string("\\") + letter
                                                                                 : std::string(1, letter);
    return out;
}

std::string actionOf(const Argument& argument)
{
    switch (argument.takes) {
    case Takes::file:
        return "_files";
    case Takes::folder:
        return "_files -/";
    case Takes::cookie:
        return "_fsys_cookies";
    case Takes::cookieOrFile:
        return "_fsys_cookies_or_files";
    case Takes::choice:
        return "(" + joinedWords(argument.choices, " ") + ")";
    case Takes::location:
        return argument.choices.empty()
                   ? "_fsys_locations"
                   : "{_fsys_locations; compadd " + joinedWords(argument.choices, " ") + "}";
    case Takes::nothing:
    case Takes::text:
    case Takes::number:
    case Takes::size:
        break;
    }
    return " ";
}

// "(--none --of --these)--name=[meaning]:VALUE:action"
std::string specOf(const Argument& option, const std::string& name)
{
    const bool hasValue = option.takes != Takes::nothing;
    std::string entry = "(" + joinedWords(option.excludes, " ");
    entry += " " + joinedWords(option.names, " ") + ")" + name;
    entry += hasValue && name.starts_with("--") ? "=" : "";
    entry += "[" + plain(option.meaning) + "]";
    if (hasValue)
        entry += ":" + plain(option.value) + ":" + actionOf(option);
    return entry;
}

std::string optionSpecs(const CommandNode& command)
{
    std::string specs;
    for (const Argument& option : ownOptions(command))
        for (const std::string& name : option.names)
            specs += " \\\n        " + quotedForZsh(specOf(option, name));
    return specs;
}

std::string argumentSpecs(const CommandNode& command)
{
    std::string specs;
    for (const Argument& argument : command.positionals)
        specs += " \\\n        " + quotedForZsh((argument.repeats    ? "*:"
                                                 : argument.required ? ":"
                                                                     : "::") +
                                                plain(argument.names.front()) + ":" + actionOf(argument));
    return specs;
}

std::string functionName(const CommandNode& command)
{
    std::string name = "_fsys_command";
    for (std::size_t i = 1; i < command.words.size(); ++i)
        name += "_" + command.words[i];
    return name;
}

std::string leafFunction(const CommandNode& command)
{
    return functionName(command) + "()\n{\n    _arguments \"${_fsys_general[@]}\"" + optionSpecs(command) +
           argumentSpecs(command) + "\n}\n\n";
}

// One that has commands; an argument of its own may stand in their place.
std::string groupFunction(const CommandNode& command)
{
    const bool isTop = command.words.size() == 1;
    const std::string options = "\"${_fsys_general[@]}\"" + (isTop ? "" : optionSpecs(command));
    std::string text = functionName(command) +
                       "()\n{\n    local curcontext=$curcontext state\n    local -a line commands\n" +
                       "    local -A opt_args\n    commands=(";
    for (const CommandNode& below : command.commands)
        text += "\n        " + quotedForZsh(below.words.back() + ":" + plain(below.summary));
    text += ")\n    _arguments -C " + options + " \\\n        '(-)1: :->command' '(-)*:: :->behind'\n";
    text += "    case $state in\n    command)\n        _describe command commands\n";
    for (const Argument& argument : command.positionals)
        text += "        " + actionOf(argument) + "\n";
    text += "        ;;\n    behind)\n        case $line[1] in\n";
    for (const CommandNode& below : command.commands)
        text += "        " + below.words.back() + ") " + functionName(below) + " ;;\n";
    if (command.standsAlone)
        text += "        *) _arguments " + options + " ;;\n";
    return text + "        esac\n        ;;\n    esac\n}\n\n";
}

}  // namespace

std::string zshCompletion(const CommandNode& tree, std::string script)
{
    std::string functions;
    for (const CommandNode* command : allOf(tree))
        functions += command->commands.empty() ? leafFunction(*command) : groupFunction(*command);
    functions.pop_back();
    fillGap(script, "GENERAL", optionSpecs(tree));
    fillGap(script, "FUNCTIONS", functions);
    return script;
}
