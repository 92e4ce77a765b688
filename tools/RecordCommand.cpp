#include "Command.h"
#include "HashBook.h"
#include "Help.h"
#include "Locations.h"
#include "MediaCopy.h"
#include "Playback.h"
#include "Plot.h"
#include "Recorder.h"
#include "Session.h"
#include "fsys/DiskManager.h"

#include <algorithm>
#include <memory>

namespace {

constexpr double defaultFramesPerSecond = 25;

struct RecordArguments
{
    std::string location;
    std::string task;
    double megabytesPerSecond = 0;
    double framesPerSecond = 0;
    std::uint64_t frameBytes = 0;
    double seconds = 5;
    unsigned streams = 1;
    std::uint64_t lowSpace = std::uint64_t{1} << 30;
    bool verify = false;
    std::string plot;
};

std::string titleOf(const RecordingPlan& plan)
{
    return "fsys record: " + std::to_string(plan.streams) + " x " +
           CLI::detail::to_string(plan.framesPerSecond) + " writes/s of " +
           readableBytes(static_cast<double>(plan.frameBytes));
}

std::vector<TimedTransfer> transfersOf(const RecordingResult& result)
{
    std::vector<TimedTransfer> all;
    for (const RecordedStream& stream : result.streams)
        all.insert(all.end(), stream.transfers.begin(), stream.transfers.end());
    return all;
}

double bytesWanted(const RecordingPlan& plan)
{
    return plan.framesPerSecond * static_cast<double>(plan.frameBytes) * plan.seconds * plan.streams;
}

// Where to record; none after a message.
std::optional<DriveId> chooseLocation(const RecordArguments& given, const RecordingPlan& plan)
{
    if (given.location != "auto")
        return knownLocation(given.location);
    DriveId best('0');
    if (!given.task.empty())
        best = DiskManager::getDriveForTask(given.task.c_str(), false);
    if (!best.valid())
        best = DiskManager::findBestDrive(bytesWanted(plan) / (1 << 20), DiskManager::MostSpace);
    if (best.valid())
        return best;
    complain("no media location has room for %s", readableBytes(bytesWanted(plan)).c_str());
    return std::nullopt;
}

struct StreamVerdict
{
    bool asked = false;
    bool good = true;
    std::string text;  // why it is not good
};

StreamVerdict verify(const RecordedStream& stream)
{
    StreamVerdict verdict;
    verdict.asked = true;
    Progress progress("verify", stream.recording.bytes, Progress::Unit::bytes);
    const MediaHash read = hashOfMedia(stream.recording.path, progress);
    if (read.error)
        verdict.text = read.error.text;
    else if (read.bytes != stream.recording.bytes || read.xxh128 != stream.recording.hash)
        verdict.text = "what was read differs from what was written";
    verdict.good = verdict.text.empty();
    return verdict;
}

Json toJson(const RecordedStream& stream, const StreamVerdict& verdict)
{
    return {{"cookie", stream.cookie.asString(true).str()},
            {"file", utf8(stream.recording.path)},
            {"bytes", stream.recording.bytes},
            {"frames", stream.frames},
            {"late_writes", stream.lateWrites},
            {"worst_write_ms", stream.worstWriteMs},
            {"xxh128", stream.recording.hash.empty() ? Json(nullptr) : Json(stream.recording.hash)},
            {"complete", stream.recording.complete},
            {"space_low", stream.spaceWasLow},
            {"verified", verdict.asked ? Json(verdict.good) : Json(nullptr)},
            {"error", stream.recording.error ? Json(stream.recording.error.text) : Json(nullptr)}};
}

void tell(const RecordedStream& stream, const StreamVerdict& verdict)
{
    const char* const verified = !verdict.asked ? "" : verdict.good ? ", verified" : ", DIFFERS";
    answer("%s  %s, %llu frames, %llu late, worst write %.1f ms%s\n  %s  %s\n",
           stream.cookie.asString(true).c_str(),
           readableBytes(static_cast<double>(stream.recording.bytes)).c_str(),
           static_cast<unsigned long long>(stream.frames), static_cast<unsigned long long>(stream.lateWrites),
           stream.worstWriteMs, verified, stream.recording.hash.c_str(), utf8(stream.recording.path).c_str());
}

int report(const Options& options, const RecordArguments& given, DriveId location,
           const RecordingResult& result)
{
    HashBook book(projectSpaceOf(options));
    ExitStatus status = exitDone;
    Json streams = Json::array();
    std::uint64_t bytes = 0;
    std::uint64_t late = 0;
    double worst = 0;
    for (const RecordedStream& stream : result.streams) {
        StreamVerdict verdict;
        if (stream.recording.complete) {
            book.add(stream.recording.path, stream.recording.bytes, stream.recording.hash);
            if (given.verify)
                verdict = verify(stream);
        }
        bytes += stream.recording.bytes;
        late += stream.lateWrites;
        worst = std::max(worst, stream.worstWriteMs);
        streams.push_back(toJson(stream, verdict));
        if (!options.json && stream.recording.bytes != 0)
            tell(stream, verdict);
        if (!verdict.good) {
            complain("%s: %s", utf8(stream.recording.path).c_str(), verdict.text.c_str());
            status = std::max(status, exitNo);
        }
        if (stream.recording.error || !stream.recording.complete) {
            complain("%s", stream.recording.error.text.c_str());
            status = exitFailed;
        }
    }
    const double rate = result.seconds > 0 ? static_cast<double>(bytes) / 1e6 / result.seconds : 0;
    if (options.json)
        answerJson({{"location", location.asString().str()},
                    {"streams", streams},
                    {"bytes", bytes},
                    {"seconds", result.seconds},
                    {"mb_per_s", rate},
                    {"late_writes", late},
                    {"worst_write_ms", worst},
                    {"interrupted", result.interrupted}});
    else
        answer("%s in %.1f s, %.1f MB/s, %llu late writes\n",
               readableBytes(static_cast<double>(bytes)).c_str(), result.seconds, rate,
               static_cast<unsigned long long>(late));
    return status;
}

int recordStreams(const Options& options, const RecordArguments& given)
{
    const Plot plot(given.plot);
    if (const int status = plot.prepare(); status != exitDone)
        return status;
    const Session session(options);
    if (session.failed())
        return exitFailed;
    RecordingPlan plan;
    plan.keepTransfers = plot.isWanted();
    plan.framesPerSecond = given.framesPerSecond > 0 ? given.framesPerSecond : defaultFramesPerSecond;
    plan.frameBytes = given.frameBytes != 0
                          ? given.frameBytes
                          : static_cast<std::uint64_t>(given.megabytesPerSecond * 1e6 / plan.framesPerSecond);
    plan.seconds = given.seconds;
    plan.streams = given.streams;
    plan.lowSpaceBytes = given.lowSpace;
    const std::optional<DriveId> location = chooseLocation(given, plan);
    if (!location)
        return exitNo;
    if (!DiskManager::prepareVolumeForMedia(*location)) {
        complain("the media folders of location %c cannot be made", location->asChar());
        return exitFailed;
    }
    plan.location = *location;
    const RecordingResult result = record(plan);
    const int status = report(options, given, *location, result);
    return std::max(status, plot.draw(titleOf(plan), transfersOf(result)));
}

}  // namespace

void addRecordCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<RecordArguments>();
    CLI::App* const command = app.add_subcommand(
        "record", "Records paced streams, each a new clip, as an application does, and tells how that went");
    command->add_option("--location", given->location, "id or path; auto: the one with the most room")
        ->type_name("LOCATION|auto")
        ->required();
    command->add_option(
        "--task", given->task,
        "with --location auto: the location chosen for this task (fsys drive task), if there is one");
    CLI::Option* const rate = command
                                  ->add_option("--rate", given->megabytesPerSecond,
                                               "MB (10^6 bytes) per second and stream, in 25 writes")
                                  ->check(numberWithin(0.001, 100000));
    CLI::Option* const fps =
        command->add_option("--fps", given->framesPerSecond, "frames per second, each one write")
            ->excludes(rate)
            ->check(numberWithin(framesPerSecondMin, framesPerSecondMax));
    CLI::Option* const frame =
        command->add_option("--frame-bytes", given->frameBytes, "bytes of a frame, as in 691200 or 12m")
            ->transform(CLI::AsSizeValue(false))
            ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 30))
            ->needs(fps);
    fps->needs(frame);
    command->add_option("--seconds", given->seconds, "how long")
        ->required()
        ->check(numberWithin(secondsMin, secondsMax));
    command->add_option("--streams", given->streams, "recorded side by side")
        ->check(CLI::Range(1U, 64U))
        ->capture_default_str();
    command->add_option("--low-space", given->lowSpace, "tell when less than this is free, as in 20g")
        ->transform(CLI::AsSizeValue(false))
        ->capture_default_str();
    command->add_flag("--verify", given->verify, "read everything back and compare");
    addPlotOption(*command, given->plot);
    addHelp(
        *command,
        {.notes = "SIGINT and SIGTERM end the recording early, with whole files. A full disk ends it too; "
                  "the whole "
                  "writes that fit are kept.",
         .keys =
             "location, streams (cookie, file, bytes, frames, late_writes: those that returned after the "
             "next "
             "frame was due, worst_write_ms, xxh128: 32 hexadecimal digits, null unless complete, complete, "
             "space_low, verified: null without --verify, error: null for none), bytes, seconds, mb_per_s "
             "(10^6 bytes), late_writes, worst_write_ms, interrupted",
         .done = "every stream is complete",
         .no = "no such location, no room, or a stream reads back differently",
         .failed = "a stream failed, or the picture of --plot cannot be made",
         .example =
             "fsys record --location auto --fps 25 --frame-bytes 12m --seconds 60 --streams 2 --verify"});
    command->callback([&options, &action, given, rate, fps] {
        if (rate->count() + fps->count() == 0)
            throw CLI::RequiredError("--rate, or --fps and --frame-bytes");
        if (!given->task.empty() && given->location != "auto")
            throw CLI::ValidationError("--task", "goes with --location auto");
        action = [&options, given] { return recordStreams(options, *given); };
    });
}
