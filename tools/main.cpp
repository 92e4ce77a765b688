#include "Command.h"
#include "Suggestion.h"

#include <exception>
#include <string>
#include <vector>

namespace {

// The place of the command line at which a command was asked for: the last one that has commands of its own
// and got none.
const CLI::App& placeOf(const CLI::App& app)
{
    const std::vector<const CLI::App*> chosen =
        app.get_subcommands([](const CLI::App* command) { return command->parsed(); });
    const bool hasCommands =
        !chosen.empty() && !chosen.back()->get_subcommands([](const CLI::App*) { return true; }).empty();
    return hasCommands ? placeOf(*chosen.back()) : app;
}

// Words of the command line that may have been meant as a command.
std::vector<std::string> doubtfulWords(const CLI::App& app, const CLI::App& place)
{
    std::vector<std::string> words = app.remaining(true);
    for (const CLI::Option* option : place.get_options())
        if (option->get_positional())
            words.insert(words.begin(), option->results().begin(), option->results().end());
    std::erase_if(words, [](const std::string& word) { return word.starts_with('-'); });
    return words;
}

// False when no word of the command line is near to a command.
bool suggest(const CLI::App& app)
{
    const CLI::App& place = placeOf(app);
    if (!place.get_subcommands([](const CLI::App* command) { return command->parsed(); }).empty())
        return false;
    for (const std::string& word : doubtfulWords(app, place)) {
        const std::string nearest = nearestCommand(place, word);
        if (nearest.empty())
            continue;
        complain("%s is not known here; the nearest command is: fsys %s\n"
                 "Run with --help for more information.",
                 word.c_str(), nearest.c_str());
        return true;
    }
    return false;
}

// Help on standard output, or what is wrong with the command line on standard error.
int explain(const CLI::App& app, const CLI::ParseError& error)
{
    const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
    const bool isMissing = code == CLI::ExitCodes::RequiredError;
    if ((isMissing || code == CLI::ExitCodes::ExtrasError) && suggest(app))
        return exitUsage;
    // The parser misses a command before it wonders about a word that is none.
    const std::vector<std::string> strange = app.remaining(true);
    if (isMissing && !strange.empty()) {
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
    addClipCommand(app, options, action);
    addStatusCommand(app, options, action);
    addReadCommand(app, options, action);
    addPlayCommand(app, options, action);
    addRecordCommand(app, options, action);
    addCopyCommand(app, options, action);
    addVerifyCommand(app, options, action);
    addRecoverCommand(app, options, action);
    addRmCommand(app, options, action);
    addProxyCommand(app, options, action);
    addLinkCommand(app, options, action);
    addDriveCommand(app, options, action);
    addShareCommand(app, options, action);
    addLoginCommand(app, options, action);
    addLogoutCommand(app, options, action);
    addWatchCommand(app, options, action);
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
