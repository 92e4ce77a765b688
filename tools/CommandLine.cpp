#include "CommandLine.h"
#include "Help.h"
#include "ServeCommand.h"
#include "Suggestion.h"

#include <algorithm>
#include <string>
#include <utility>
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

}  // namespace

CommandLine::CommandLine()
{
    app_.add_option(
            "--space", options_.space,
            "project space (default $FSYS_SPACE, else ${XDG_DATA_HOME:-~/.local/share}/fsys); made on "
            "first use")
        ->type_name("DIR");
    app_.add_flag("--json", options_.json, "answer in JSON, one object per line");
    app_.add_flag("--no-discovery", options_.noDiscovery, "do not look for media drives by itself");
    app_.add_flag("--verbose", options_.verbose, "show the library's diagnostics on standard error");
    app_.require_subcommand(1);
    app_.fallthrough();
    addCommonHelp(app_);
    addLocationCommand(app_, options_, action_);
    addScanCommand(app_, options_, action_);
    addImportCommand(app_, options_, action_);
    addFindCommand(app_, options_, action_);
    addClipCommand(app_, options_, action_);
    addStatusCommand(app_, options_, action_);
    addReadCommand(app_, options_, action_);
    addPlayCommand(app_, options_, action_);
    addRecordCommand(app_, options_, action_);
    addCopyCommand(app_, options_, action_);
    addVerifyCommand(app_, options_, action_);
    addRecoverCommand(app_, options_, action_);
    addRmCommand(app_, options_, action_);
    addProxyCommand(app_, options_, action_);
    addLinkCommand(app_, options_, action_);
    addDriveCommand(app_, options_, action_);
    addShareCommand(app_, options_, action_);
    addLoginCommand(app_, options_, action_);
    addLogoutCommand(app_, options_, action_);
    addWatchCommand(app_, options_, action_);
    addTopCommand(app_, options_, action_);
    addServeCommand(app_, options_, action_);
    addDemoCommand(app_, options_, action_);
}

int CommandLine::parse(std::vector<std::string> words)
{
    action_ = nullptr;
    std::reverse(words.begin(), words.end());  // the parser takes them from the back
    try {
        app_.parse(std::move(words));
    } catch (const CLI::ParseError& error) {
        action_ = nullptr;
        return explain(app_, error);
    }
    return exitDone;
}

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
