#include "Command.h"
#include "Help.h"
#include "Interruption.h"
#include "LocationMeter.h"
#include "Session.h"
#include "TerminalScreen.h"
#include "TextWidth.h"
#include "TopTable.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <memory>

namespace {

using Clock = std::chrono::steady_clock;

constexpr double intervalMin = 0.05;
constexpr double intervalMax = 86400;
constexpr char noLocations[] = "no media location is known; fsys location add PATH makes one";

struct TopArguments
{
    double intervalS = 1;
    std::uint64_t count = 0;  // 0: no end
};

Clock::duration intervalOf(const TopArguments& given)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(given.intervalS));
}

template <class Value>
Json jsonOf(const std::optional<Value>& value)
{
    return value ? Json(*value) : Json(nullptr);
}

Json jsonOf(const LocationLoad& location, double time)
{
    const auto& load = location.load;
    return {{"time", time},
            {"id", location.id.empty() ? Json(nullptr) : Json(location.id)},
            {"name", location.name},
            {"path", location.path},
            {"online", location.online},
            {"disk", location.disk.empty() ? Json(nullptr) : Json(location.disk)},
            {"read_mb_per_s", load ? Json(load->readMbPerS) : Json(nullptr)},
            {"write_mb_per_s", load ? Json(load->writeMbPerS) : Json(nullptr)},
            {"queue_depth", load ? Json(load->queueDepth) : Json(nullptr)},
            {"in_flight", jsonOf(location.inFlight)},
            {"slow", load ? Json(load->slow) : Json(nullptr)},
            {"free_bytes", jsonOf(location.freeBytes)},
            {"total_bytes", jsonOf(location.totalBytes)},
            {"minutes", jsonOf(location.minutes)}};
}

void answerLoads(const Options& options, const std::vector<LocationLoad>& locations)
{
    const std::chrono::duration<double> time = std::chrono::system_clock::now().time_since_epoch();
    if (options.json) {
        for (const LocationLoad& location : locations)
            answerJson(jsonOf(location, time.count()));
        return;
    }
    for (const TopLine& line : topTable(locations, topTableWidth(locations)))
        answer("%s\n", line.text.c_str());
    answer("\n");
}

// For scripts: an interval first, so that each answer has its rates.
int answerEach(const Options& options, const TopArguments& given)
{
    const Interruption interruption;
    const Session session(options);
    if (session.failed())
        return exitFailed;
    LocationMeter meter(projectSpaceOf(options));
    std::vector<LocationLoad> locations = meter.look();
    auto due = Clock::now();
    for (std::uint64_t told = 0; given.count == 0 || told < given.count; ++told) {
        // Not from the last due time on: a look that took long is not made up for by two close ones.
        due = std::max(due + intervalOf(given), Clock::now());
        if (!Interruption::sleepUntil(due) || !answerArrived())
            return exitDone;
        locations = meter.look();
        if (locations.empty() && told == 0 && !options.json)
            complain("%s", noLocations);
        if (!locations.empty())
            answerLoads(options, locations);
    }
    return exitDone;
}

std::string clockTime()
{
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    std::array<char, 16> text{};
    localtime_r(&now, &parts);
    std::strftime(text.data(), text.size(), "%H:%M:%S", &parts);
    return text.data();
}

bool wantsColours()
{
    const char* const none = std::getenv("NO_COLOR");
    return !none || *none == '\0';
}

std::string drawn(const TopLine& line, bool coloured)
{
    switch (line.style) {
    case TopLine::Style::head:
        return "\033[7m" + line.text;
    case TopLine::Style::slow:
        return (coloured ? "\033[1;33m" : "\033[1m") + line.text;
    case TopLine::Style::offline:
        return (coloured ? "\033[31m" : "") + line.text;
    case TopLine::Style::plain:
        break;
    }
    return line.text;
}

// The page of a terminal: what it is, the table from its first line that is not scrolled away, what is left.
class TopPage
{
public:
    explicit TopPage(double intervalS) : intervalS_(intervalS) {}

    void scroll(int lines) { first_ = lines < 0 && first_ == 0 ? 0 : first_ + static_cast<unsigned>(lines); }
    [[nodiscard]] std::string draw(const std::vector<LocationLoad>& locations, TerminalScreen::Size size)
    {
        std::vector<std::string> lines{title(size.columns)};
        const std::vector<TopLine> table = topTable(locations, size.columns);
        if (locations.empty())
            lines.push_back(fitted(noLocations, size.columns));
        else
            addTable(table, size.lines, lines);
        lines.resize(std::min<std::size_t>(lines.size(), size.lines));
        std::string text;
        for (const std::string& line : lines)
            text += (text.empty() ? "" : "\n") + line;
        return text;
    }

private:
    [[nodiscard]] std::string title(unsigned columns) const
    {
        const std::string left = "fsys top  " + clockTime();
        const std::string right = "every " + CLI::detail::to_string(intervalS_) + " s, q quits";
        const unsigned used = columnsOf(left);
        return used + 2 + columnsOf(right) > columns ? fitted(left, columns)
                                                     : left + fittedRight(right, columns - used);
    }
    void addTable(const std::vector<TopLine>& table, unsigned height, std::vector<std::string>& lines)
    {
        const std::size_t rows = table.size() - 1;
        const std::size_t room = height > 2 ? height - 2 : 0;
        const bool fits = rows <= room;
        const std::size_t shown = fits ? rows : std::max<std::size_t>(room, 1) - 1;
        first_ = static_cast<unsigned>(std::min<std::size_t>(first_, rows - shown));
        lines.push_back(drawn(table.front(), coloured_));
        for (std::size_t i = 0; i < shown; ++i)
            lines.push_back(drawn(table[1 + first_ + i], coloured_));
        if (!fits)
            lines.push_back(fitted(std::to_string(first_) + " above, " +
                                       std::to_string(rows - shown - first_) + " below; the arrow keys move",
                                   columnsOf(table.front().text)));
    }

    double intervalS_;
    unsigned first_ = 0;
    const bool coloured_ = wantsColours();
};

// False when the display is to end.
bool showUntil(Clock::time_point due, const std::vector<LocationLoad>& locations, TerminalScreen& screen,
               TopPage& page)
{
    do {
        if (!screen.show(page.draw(locations, screen.size())))
            return false;
        const TerminalKey key = screen.wait(due);
        if (screen.isEndWanted() || key == TerminalKey::quit)
            return false;
        if (key != TerminalKey::none)
            page.scroll(key == TerminalKey::up ? -1 : 1);
    } while (Clock::now() < due);
    return true;
}

int showOn(int terminal, const Options& options, const TopArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    LocationMeter meter(projectSpaceOf(options));
    std::vector<LocationLoad> locations = meter.look();
    TerminalScreen screen(terminal);
    TopPage page(given.intervalS);
    auto due = Clock::now();
    for (std::uint64_t shown = 0; given.count == 0 || shown <= given.count; ++shown) {
        due = std::max(due + intervalOf(given), Clock::now());
        if (!showUntil(due, locations, screen, page))
            break;
        locations = meter.look();
    }
    return exitDone;
}

int top(const Options& options, const TopArguments& given)
{
    const int terminal = options.json ? -1 : answerTerminal();
    return terminal >= 0 ? showOn(terminal, options, given) : answerEach(options, given);
}

}  // namespace

void addTopCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<TopArguments>();
    CLI::App* const command =
        app.add_subcommand("top", "Shows how busy the disks of the locations are, and how much room is left");
    command->add_option("--interval", given->intervalS, "seconds between two looks")
        ->check(numberWithin(intervalMin, intervalMax))
        ->capture_default_str();
    command->add_option("--count", given->count, "ends after so many intervals")
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 40));
    addHelp(
        *command,
        {.notes = "On a terminal until q is pressed; into a pipe or file a table for each interval; with "
                  "--json one line for each location and interval, the first after the first interval.\n"
                  "Rates and queue are those of the disk behind a location, as the kernel counts them for "
                  "the whole machine: everybody's work on that disk is in them, and locations on one disk "
                  "show the same. What is read from memory or still to be written is not in them. Disks of "
                  "several devices are counted by the device that the mount table names; network mounts "
                  "where the kernel counts for them (NFS), others show a dash.\n"
                  "Slow: transfers of more than 10000 bytes went, in the mean of the interval, at less than "
                  "MinNetDiskRate (a configuration integer, 300) bytes per millisecond.\n"
                  "Time left: how long recording may go on at the mean rate of writing of the last ten "
                  "seconds, 2 MB of the location spared.\n"
                  "A location whose server does not answer is offline after 2 seconds, and is asked "
                  "again when the server has answered.",
         .keys = "time (seconds since 1970), id (null while it cannot be registered), name, path, online, "
                 "disk (device or share, null where nobody counts), read_mb_per_s and write_mb_per_s (10^6 "
                 "bytes), queue_depth (transfers under way, in the mean), in_flight (transfers under way "
                 "now), slow, free_bytes, total_bytes, minutes (whole ones left; -1 without room; null "
                 "while nobody writes); null for all that is not known",
         .done = "ended by q, --count, SIGINT or SIGTERM",
         .example = "fsys top --interval 2"});
    command->callback(
        [&options, &action, given] { action = [&options, given] { return top(options, *given); }; });
}
