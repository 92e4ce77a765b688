#include "Command.h"
#include "Help.h"
#include "Locations.h"
#include "Session.h"
#include "media/Recovery.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <vector>

namespace {

struct RecoverArguments
{
    std::vector<std::string> files;
    std::string location;
    bool finish = false;
    bool remove = false;
    bool all = false;
};

std::vector<UnfinishedRecording> findAll(std::optional<DriveId> location)
{
    if (location)
        return findUnfinished(*location);
    std::vector<UnfinishedRecording> found;
    for (const DriveId& id : allLocations())
        for (const UnfinishedRecording& recording : findUnfinished(id))
            found.push_back(recording);
    return found;
}

// Those of found that the command line names; a name that is none of them is reported.
std::vector<UnfinishedRecording> choose(const std::vector<UnfinishedRecording>& found,
                                        const std::vector<std::string>& files, ExitStatus& status)
{
    std::vector<UnfinishedRecording> chosen;
    for (const std::string& file : files) {
        const std::string path = std::filesystem::absolute(file).lexically_normal().string();
        const auto match = std::find_if(found.begin(), found.end(), [&](const auto& recording) {
            for (const std::string& name : {utf8(recording.path), utf8(recording.finalPath)})
                if (name == path || std::filesystem::path(name).filename() == file)
                    return true;
            return false;
        });
        if (match != found.end()) {
            chosen.push_back(*match);
        } else {
            complain("%s is no unfinished recording of a media location", file.c_str());
            status = std::max(status, exitNo);
        }
    }
    return chosen;
}

struct Outcome
{
    const char* action = "found";  // found, finished, removed
    MediaError error;
};

Outcome treat(const UnfinishedRecording& recording, const RecoverArguments& given)
{
    if (given.finish)
        return {"finished", finishUnfinished(recording)};
    if (given.remove)
        return {"removed", removeUnfinished(recording)};
    return {};
}

void tell(const Options& options, const UnfinishedRecording& recording, const Outcome& outcome)
{
    const std::string file = utf8(recording.path);
    const char* const action = outcome.error ? "found" : outcome.action;
    const bool finished = std::string(action) == "finished";
    if (options.json)
        answerJson({{"location", recording.location.asString().str()},
                    {"file", file},
                    {"final_file", utf8(recording.finalPath)},
                    {"cookie",
                     recording.cookie.valid() ? Json(recording.cookie.asString(true).str()) : Json(nullptr)},
                    {"bytes", recording.bytes},
                    {"good_bytes", recording.goodBytes},
                    {"modified", static_cast<double>(recording.modifiedNs) / 1e9},
                    {"in_use", recording.inUse},
                    {"action", action},
                    {"error", outcome.error ? Json(outcome.error.text) : Json(nullptr)}});
    else
        answer("%-8s  %9s%s  %s\n", action, readableBytes(static_cast<double>(recording.goodBytes)).c_str(),
               recording.inUse ? ", being recorded" : "",
               finished ? utf8(recording.finalPath).c_str() : file.c_str());
    if (outcome.error)
        complain("%s", outcome.error.text.c_str());
}

int recover(const Options& options, const RecoverArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    std::optional<DriveId> location;
    if (!given.location.empty()) {
        location = knownLocation(given.location);
        if (!location)
            return exitNo;
    }
    ExitStatus status = exitDone;
    std::vector<UnfinishedRecording> recordings = findAll(location);
    if (!given.files.empty())
        recordings = choose(recordings, given.files, status);
    for (const UnfinishedRecording& recording : recordings) {
        const bool leftAlone = given.all && recording.inUse;
        const Outcome outcome = leftAlone ? Outcome{} : treat(recording, given);
        tell(options, recording, outcome);
        if (outcome.error)
            status = exitFailed;
    }
    if (recordings.empty() && status == exitDone && !options.json)
        answer("There are no unfinished recordings.\n");
    return status;
}

}  // namespace

void addRecoverCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<RecoverArguments>();
    CLI::App* const command =
        app.add_subcommand("recover", "Unfinished recordings: lists them, finishes them, removes them");
    command->add_option("FILE", given->files, "recordings to treat: path or name, with or without .partial");
    command->add_option("--location", given->location, "id or path (default: all locations)")
        ->type_name("LOCATION");
    CLI::Option* const finish = command->add_flag(
        "--finish", given->finish, "keep what reached the disk, under the final name, as a clip");
    CLI::Option* const remove = command->add_flag("--remove", given->remove, "remove the files");
    CLI::Option* const all =
        command->add_flag("--all", given->all, "with --finish or --remove: all that are listed");
    finish->excludes(remove);
    addHelp(
        *command,
        {.notes = "A recording that somebody still makes is left alone; to name it is an error. Nothing is "
                  "replaced.",
         .keys =
             "location, file, final_file, cookie (null when the name is no clip's), bytes (of the file), "
             "good_bytes (from the start up to the first byte that never reached the disk: what --finish "
             "keeps), modified (seconds since 1970), in_use, action (found, finished, removed), error (null "
             "for none); one object per recording",
         .no = "no such location or recording",
         .failed = "a recording could not be finished or removed",
         .example = "fsys recover --finish --all"});
    command->callback([&options, &action, given, all] {
        const bool acts = given->finish || given->remove;
        if (acts && given->files.empty() && all->count() == 0)
            throw CLI::RequiredError("FILE or --all");
        if (!acts && (!given->files.empty() || all->count() != 0))
            throw CLI::RequiredError("--finish or --remove");
        action = [&options, given] { return recover(options, *given); };
    });
}
