#include "Help.h"

#include <sstream>

namespace {

constexpr std::size_t lineWidth = 100;

void fillLine(const std::string& line, std::string& filled)
{
    std::istringstream words(line);
    std::size_t used = 0;
    for (std::string word; words >> word; used += word.size()) {
        const bool fits = used + 1 + word.size() <= lineWidth;
        if (used > 0)
            filled += fits ? " " : "\n  ";
        used = used == 0 ? 0 : fits ? used + 1 : 2;
        filled += word;
    }
    filled += '\n';
}

// In lines of a width that terminals show; what belongs to the line above is indented.
std::string filledLines(const std::string& text)
{
    std::string filled;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        fillLine(line, filled);
    return filled;
}

std::string exitStatusText(const CommandHelp& help)
{
    return "exit status: 0 " + help.done + "; " + (help.no.empty() ? "" : "1 " + help.no + "; ") +
           "2 wrong usage; 3 " + help.failed;
}

}  // namespace

void addHelp(CLI::App& command, const CommandHelp& help)
{
    command.footer(filledLines(help.notes) + filledLines("keys: " + help.keys) +
                   filledLines(exitStatusText(help)) + "example: " + help.example);
}

void addGroupHelp(CLI::App& group, const std::string& example)
{
    group.footer("--help behind one of these tells its options, the keys of its JSON and its exit status\n"
                 "example: " +
                 example);
}
