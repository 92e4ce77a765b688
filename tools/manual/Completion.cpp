#include "Completion.h"

#include <stdexcept>

void fillGap(std::string& script, const std::string& gap, const std::string& text)
{
    const std::string mark = "@" + gap + "@";
    const std::size_t at = script.find(mark);
    if (at == std::string::npos)
        throw std::runtime_error("the template has no " + mark);
    script.replace(at, mark.size(), text);
}

std::string joinedWords(const std::vector<std::string>& words, const char* between)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : between) + word;
    return text;
}

std::string lineBehind(const CommandNode& command)
{
    return joinedWords({command.words.begin() + 1, command.words.end()}, " ");
}

std::vector<Argument> ownOptions(const CommandNode& command)
{
    std::vector<Argument> options = command.options;
    if (command.words.size() > 1)
        std::erase_if(options, [](const Argument& option) { return option.names.back() == "--help"; });
    return options;
}

std::string quoted(const std::string& text, const char* escapedMark)
{
    std::string out = "'";
    for (const char letter : text)
        out += letter == '\'' ? escapedMark : std::string(1, letter);
    return out + "'";
}
