#include "Command.h"
#include "Help.h"
#include "Locations.h"
#include "Session.h"
#include "fsys/DiskManager.h"
#include "support/Preferences.h"

#include <limits>
#include <memory>

namespace {

constexpr double megabytesMax = 1e15;
constexpr std::uint64_t rateMax = std::uint64_t{1} << 60;
constexpr std::int32_t withoutLimit = std::numeric_limits<std::int32_t>::max();

struct DriveArguments
{
    double megabytes = 0;
    std::string match = "best-fit";
    std::string drive;
    std::uint64_t rateA = 0;
    std::uint64_t rateB = 0;
    std::string task;
    std::string set;
    bool clear = false;
    bool fallback = false;
};

int bestDrive(const Options& options, const DriveArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const auto match = given.match == "most-space" ? DiskManager::MostSpace : DiskManager::BestFit;
    const DriveId best = DiskManager::findBestDrive(given.megabytes, match);
    if (!best.valid()) {
        complain("no location has more than %.0f MB free", given.megabytes);
        return exitNo;
    }
    // The selection has taken off what was asked for.
    const double free = DiskManager::getDriveWithUniqueId(best).getSpaceMB() + given.megabytes;
    if (options.json)
        answerJson({{"id", best.asString().str()},
                    {"name", nameOf(best)},
                    {"path", rootOf(best)},
                    {"free_mb", free},
                    {"match", given.match}});
    else
        answer("%s  %s  %.0f MB free\n", labelOf(best).c_str(), rootOf(best).c_str(), free);
    return exitDone;
}

int timeLeft(const Options& options, const DriveArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<DriveId> drive = knownLocation(given.drive);
    if (!drive)
        return exitNo;
    const double free = DiskManager::getSpaceForRecording(*drive);
    const std::int32_t minutes = DiskManager::get_mins_of_recording_left(
        *drive, static_cast<double>(given.rateA), static_cast<double>(given.rateB));
    if (options.json)
        answerJson({{"id", drive->asString().str()},
                    {"name", nameOf(*drive)},
                    {"free_mb", free},
                    {"minutes", minutes},
                    {"unlimited", minutes == withoutLimit}});
    else if (minutes == withoutLimit)
        answer("%s: without limit\n", labelOf(*drive).c_str());
    else if (minutes >= 0)
        answer("%s: %d minutes (%.0f MB)\n", labelOf(*drive).c_str(), minutes, free);
    if (minutes >= 0)
        return exitDone;
    complain("there is no room on location %s", labelOf(*drive).c_str());
    return exitNo;
}

// False, after a message, when the choice was not kept for later runs.
bool isKept()
{
    // Removing nothing saves what could not be saved before.
    if (prefs().removePreference(""))
        return true;
    complain("the preferences could not be saved");
    return false;
}

int answerTask(const Options& options, const DriveArguments& given, const DriveId& drive)
{
    if (options.json)
        answerJson({{"task", given.task},
                    {"id", drive.valid() ? Json(drive.asString().str()) : Json(nullptr)},
                    {"name", nameOf(drive)},
                    {"path", rootOf(drive)}});
    else if (drive.valid())
        answer("%s  %s\n", labelOf(drive).c_str(), rootOf(drive).c_str());
    return exitDone;
}

int taskDrive(const Options& options, const DriveArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const char* const task = given.task.c_str();
    if (!given.set.empty() || given.clear) {
        const std::optional<DriveId> drive = given.clear ? DriveId() : knownLocation(given.set);
        if (!drive)
            return exitNo;
        DiskManager::setDriveForTask(task, *drive);
        return isKept() ? answerTask(options, given, *drive) : static_cast<int>(exitFailed);
    }
    const DriveId drive = DiskManager::getDriveForTask(task, given.fallback);
    answerTask(options, given, drive);
    if (drive.valid())
        return exitDone;
    complain("no location is chosen for %s, or it cannot be reached", task);
    return exitNo;
}

void addBest(CLI::App& drive, const Options& options, Action& action)
{
    const auto given = std::make_shared<DriveArguments>();
    CLI::App* const best = drive.add_subcommand("best", "The location that should take new media");
    best->add_option("--mb", given->megabytes, "room that is needed, in units of 2^20 bytes")
        ->required()
        ->check(numberWithin(0, megabytesMax));
    best->add_option("--match", given->match, "the least room that suffices, or the most")
        ->check(CLI::IsMember({"best-fit", "most-space"}))
        ->capture_default_str();
    addHelp(*best,
            {.notes = "A location suffices when it has more than that free. Of equal ones the first is "
                      "taken. Nothing is reserved beyond this command.",
             .keys = "id, name, path, free_mb (2^20 bytes), match",
             .no = "no location has that much room",
             .example = "fsys drive best --mb 20000 --match most-space"});
    best->callback(
        [&options, &action, given] { action = [&options, given] { return bestDrive(options, *given); }; });
}

void addTime(CLI::App& drive, const Options& options, Action& action)
{
    const auto given = std::make_shared<DriveArguments>();
    CLI::App* const time = drive.add_subcommand("time", "How long two streams may be recorded to a location");
    time->add_option("ID", given->drive, "id or path")->required();
    const auto addRate = [&](const char* name, std::uint64_t& rate, const char* meaning) {
        return time->add_option(name, rate, meaning)
            ->transform(CLI::AsSizeValue(false))
            ->check(CLI::Range(std::uint64_t{0}, rateMax))
            ->capture_default_str();
    };
    addRate("--rate-a", given->rateA, "bytes per minute of the first stream, as in 750000000 or 700m")
        ->required();
    addRate("--rate-b", given->rateB, "bytes per minute of the second");
    addHelp(*time,
            {.notes = "2 MB of every location are never recorded to.",
             .keys = "id, name, free_mb (2^20 bytes, less the reserve), minutes (whole ones; -1 without "
                     "room; 2147483647 without limit), unlimited",
             .no = "no such location, or no room on it",
             .example = "fsys drive time 1 --rate-a 700m --rate-b 12m"});
    time->callback(
        [&options, &action, given] { action = [&options, given] { return timeLeft(options, *given); }; });
}

void addTask(CLI::App& drive, const Options& options, Action& action)
{
    const auto given = std::make_shared<DriveArguments>();
    CLI::App* const task =
        drive.add_subcommand("task", "Asks for, or chooses, the location of a kind of task");
    task->add_option("TASK", given->task, "name of the task, as in Record")->required();
    CLI::Option* const set =
        task->add_option("--set", given->set, "choose this location: id or path")->type_name("LOCATION");
    CLI::Option* const clear = task->add_flag("--clear", given->clear, "forget the choice")->excludes(set);
    task->add_flag("--fallback", given->fallback,
                   "without a choice that can be reached: the last location with any room")
        ->excludes(set)
        ->excludes(clear);
    addHelp(*task, {.notes = "The choice is kept in the user's preferences, by the path of the location.",
                    .keys = "task, id (null for none), name, path",
                    .done = "the location, or the choice is kept or forgotten",
                    .no = "no such location, or none is chosen that can be reached",
                    .failed = "failed, or the choice could not be kept",
                    .example = "fsys drive task Record --set 1"});
    task->callback(
        [&options, &action, given] { action = [&options, given] { return taskDrive(options, *given); }; });
}

}  // namespace

void addDriveCommand(CLI::App& app, const Options& options, Action& action)
{
    CLI::App* const drive =
        app.add_subcommand("drive", "Choosing a location for new media: best, time, task");
    drive->require_subcommand(1);
    addGroupHelp(*drive, "fsys drive best --mb 20000");
    addBest(*drive, options, action);
    addTime(*drive, options, action);
    addTask(*drive, options, action);
}
