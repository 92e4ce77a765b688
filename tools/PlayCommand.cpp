#include "Command.h"
#include "Help.h"
#include "Playback.h"
#include "Plot.h"
#include "Session.h"

#include <memory>

namespace {

struct PlayArguments
{
    std::vector<std::string> cookies;
    double framesPerSecond = 25;
    std::uint64_t frameBytes = 0;
    double seconds = 5;
    std::string level = "high";
    unsigned height = 0;
    std::string plot;
};

std::string titleOf(const PlayArguments& given)
{
    return "fsys play: " + std::to_string(given.cookies.size()) + " x " +
           CLI::detail::to_string(given.framesPerSecond) + " frames/s of " +
           readableBytes(static_cast<double>(given.frameBytes));
}

int playStreams(const Options& options, const PlayArguments& given)
{
    const Plot plot(given.plot);
    if (const int status = plot.prepare(); status != exitDone)
        return status;
    const Session session(options);
    if (session.failed())
        return exitFailed;
    PlaybackPlan plan;
    plan.keepTransfers = plot.isWanted();
    plan.framesPerSecond = given.framesPerSecond;
    plan.frameBytes = given.frameBytes;
    plan.seconds = given.seconds;
    for (const std::string& cookie : given.cookies) {
        plan.streams.push_back(sourceOf(cookie, formatOf(given.level, given.height)));
        if (plan.streams.back().status != exitDone)
            return plan.streams.back().status;
        if (plan.streams.back().size == 0) {
            complain("%s is empty", cookie.c_str());
            return exitNo;
        }
    }
    const PlaybackResult result = play(plan);
    if (!result.error.empty()) {
        complain("%s", result.error.c_str());
        return exitFailed;
    }
    if (options.json)
        answerJson({{"streams", plan.streams.size()},
                    {"frames_due", result.framesDue},
                    {"frames_on_time", result.framesOnTime},
                    {"frames_late", result.framesLate},
                    {"worst_wait_ms", result.worstWaitMs}});
    else
        answer("%zu streams: %llu frames due, %llu on time, %llu late, worst wait %.1f ms\n",
               plan.streams.size(), static_cast<unsigned long long>(result.framesDue),
               static_cast<unsigned long long>(result.framesOnTime),
               static_cast<unsigned long long>(result.framesLate), result.worstWaitMs);
    return plot.draw(titleOf(given), result.transfers);
}

}  // namespace

void addPlayCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<PlayArguments>();
    CLI::App* const command =
        app.add_subcommand("play", "Reads frames of clips against their deadlines, as a player does");
    command->add_option("COOKIE", given->cookies, "clips, one stream each")->required();
    command->add_option("--fps", given->framesPerSecond, "frames per second")
        ->required()
        ->check(numberWithin(framesPerSecondMin, framesPerSecondMax));
    command->add_option("--frame-bytes", given->frameBytes, "bytes of a frame, as in 691200 or 12m")
        ->required()
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 30));
    command->add_option("--seconds", given->seconds, "how long")
        ->check(numberWithin(secondsMin, secondsMax))
        ->capture_default_str();
    command->add_option("--level", given->level, "which files")
        ->check(CLI::IsMember({"high", "proxy", "auto"}))
        ->capture_default_str();
    command->add_option("--height", given->height, "with auto: proxies at least this tall, in lines")
        ->check(CLI::Range(1U, pictureHeightMax));
    addPlotOption(*command, given->plot);
    addHelp(
        *command,
        {.notes = "A clip that is too short is read again from its start.",
         .keys =
             "streams, frames_due, frames_on_time, frames_late, worst_wait_ms (how long the latest frame was "
             "overdue)",
         .done = "played, also when frames were late",
         .no = "a clip is unknown, offline or empty",
         .failed = "reading failed, or the picture of --plot cannot be made",
         .example = "fsys play V0123456789ABCDEF00 --fps 25 --frame-bytes 12m --seconds 20"});
    command->callback(
        [&options, &action, given] { action = [&options, given] { return playStreams(options, *given); }; });
}
