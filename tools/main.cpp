#include "Command.h"

#include <exception>
#include <string>
#include <vector>

namespace {

// Help on standard output, or what is wrong with the command line on standard error.
int explain(const CLI::App& app, const CLI::ParseError& error)
{
    // The parser misses a command before it wonders about a word that is none.
    const std::vector<std::string> strange = app.remaining(true);
    if (error.get_name() == "RequiredError" && !strange.empty()) {
        complain("%s is not known here\nRun with --help for more information.", strange.front().c_str());
        return exitUsage;
    }
    return app.exit(error) == 0 ? exitDone : exitUsage;
}

int run(int argumentCount, char** arguments)
{
    CLI::App app(
        "Media file-system layer: media locations, clips, and reading them at the speed of playback.",
        "fsys");
    Options options;
    Action action;
    app.add_option("--space", options.space,
                   "project space (default $FSYS_SPACE, else ${XDG_DATA_HOME:-~/.local/share}/fsys); made on "
                   "first use")
        ->type_name("DIR");
    app.add_flag("--json", options.json, "answer in JSON, one object per line");
    app.add_flag("--no-discovery", options.noDiscovery, "do not look for media drives by itself");
    app.add_flag("--verbose", options.verbose, "show the library's diagnostics on standard error");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer("exit status: 0 done, 1 the answer is no, 2 wrong usage, 3 the system failed");
    addLocationCommand(app, options, action);
    addScanCommand(app, options, action);
    addImportCommand(app, options, action);
    addFindCommand(app, options, action);
    addReadCommand(app, options, action);
    addPlayCommand(app, options, action);
    addDemoCommand(app, options, action);
    try {
        app.parse(argumentCount, arguments);
    } catch (const CLI::ParseError& error) {
        return explain(app, error);
    }
    takeStandardOutput(options.verbose);
    const int status = action();
    if (answerArrived())
        return status;
    complain("the answer could not be written");
    return exitFailed;
}

}  // namespace

CLI::Validator numberWithin(double min, double max)
{
    const std::string range = std::to_string(min) + " to " + std::to_string(max);
    return {[min, max, range](std::string& text) {
                double value = 0;
                // "nan" is neither below nor above any limit.
                if (CLI::detail::lexical_cast(text, value) && value >= min && value <= max)
                    return std::string();
                return text + " is not within " + range;
            },
            range};
}

int main(int argumentCount, char** arguments)
{
    holdStandardStreams();
    try {
        return run(argumentCount, arguments);
    } catch (const std::exception& error) {
        complain("%s", error.what());
        return exitFailed;
    }
}
