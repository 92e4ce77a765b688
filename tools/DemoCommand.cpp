#include "Command.h"
#include "Demo.h"
#include "Help.h"
#include "Playback.h"

#include <memory>

void addDemoCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<DemoArguments>();
    CLI::App* const command =
        app.add_subcommand("demo", "Shows in a minute what this system does, in a folder of its own");
    command
        ->add_option("--dir", given->folder,
                     "the folder; made anew, and kept (default: one below the folder for temporary files)")
        ->type_name("DIR");
    command
        ->add_option("--media", given->media,
                     "use the media files of this folder, by link, instead of made ones")
        ->type_name("DIR");
    command->add_option("--seconds", given->seconds, "how long to play")
        ->check(numberWithin(secondsMin, secondsMax))
        ->capture_default_str();
    addHelp(*command,
            {.keys = "dir, clips, proxies, online (clips), minutes_left (of such pictures, in the first "
                     "location), online (clips), minutes_left (of recording on the first location; -1 "
                     "without room), frames_due, frames_late, files (cookie, asked, kind: high, proxy, file, "
                     "bytes, xxh128: 32 hexadecimal digits, verified), verified (all of them)",
             .done = "every byte came back as it was written",
             .no = "some bytes differ",
             .example = "fsys demo --media ~/Videos"});
    command->callback(
        [&options, &action, given] { action = [&options, given] { return runDemo(options, *given); }; });
}
