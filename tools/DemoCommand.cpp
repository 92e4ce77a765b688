#include "Command.h"
#include "Demo.h"
#include "Playback.h"

#include <memory>

void addDemoCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<DemoArguments>();
    CLI::App* const command =
        app.add_subcommand("demo", "Shows in a minute what this system does, in a folder of its own");
    command->add_option(
        "--dir", given->folder,
        "the folder; made anew, and kept (default: one below the folder for temporary files)");
    command->add_option("--media", given->media,
                        "use the media files of this folder, by link, instead of made ones");
    command->add_option("--seconds", given->seconds, "how long to play")
        ->check(numberWithin(secondsMin, secondsMax))
        ->capture_default_str();
    command->footer("example: fsys demo --media ~/Videos");
    command->callback(
        [&options, &action, given] { action = [&options, given] { return runDemo(options, *given); }; });
}
