#include "Help.h"

#include <memory>
#include <sstream>
#include <utility>

namespace {

constexpr std::size_t lineWidth = 100;

// The parser keeps of a help its text alone; its parts ride on the formatter. Subcommands get the formatter
// of the command above until they have one of their own, hence the owner.
class HelpKeeper : public CLI::Formatter
{
public:
    HelpKeeper(const CLI::App& owner, CommandHelp help) : owner_(&owner), help_(std::move(help)) {}

    [[nodiscard]] const CommandHelp* helpOf(const CLI::App& command) const
    {
        return &command == owner_ ? &help_ : nullptr;
    }

private:
    const CLI::App* owner_;
    CommandHelp help_;
};

void keep(CLI::App& command, const CommandHelp& help)
{
    command.formatter(std::make_shared<HelpKeeper>(command, help));
}

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
    keep(command, help);
    command.footer(filledLines(help.notes) + filledLines("keys: " + help.keys) +
                   filledLines(exitStatusText(help)) + "example: " + help.example);
}

void addGroupHelp(CLI::App& group, const std::string& example)
{
    keep(group, {.done = {}, .failed = {}, .example = example});
    group.footer("--help behind one of these tells its options, the keys of its JSON and its exit status\n"
                 "example: " +
                 example);
}

void addCommonHelp(CLI::App& app)
{
    const CommandHelp help{.no = "the answer is no",
                           .failed = "the system failed",
                           .example = "fsys location add /media/raid --name \"Raid A\"\n"
                                      "fsys import shot7.mov --location 1\n"
                                      "fsys status --offline\n"
                                      "fsys read V0123456789ABCDEF00 --hash"};
    keep(app, help);
    app.footer("exit status: 0 " + help.done + ", 1 " + help.no + ", 2 wrong usage, 3 " + help.failed);
}

const CommandHelp* helpOf(const CLI::App& command)
{
    const auto* const keeper = dynamic_cast<const HelpKeeper*>(command.get_formatter().get());
    return keeper ? keeper->helpOf(command) : nullptr;
}
