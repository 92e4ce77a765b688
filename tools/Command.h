#pragma once

#include "Answer.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

// What every subcommand needs: where the project space is, how to answer, and where to leave its exit status.
struct Options
{
    std::string space;
    bool json = false;
    bool noDiscovery = false;
    bool verbose = false;
};

// Exit status of the command; people script it.
enum ExitStatus : int {
    exitDone = 0,
    exitNo = 1,  // the answer is no: unknown clip, offline, verification failed
    exitUsage = 2,
    exitFailed = 3,  // the system failed; a message says how
};

// Lines of the tallest picture that an option takes.
constexpr unsigned pictureHeightMax = 1000000;

// Takes numbers from min to max, and nothing that is no number.
[[nodiscard]] CLI::Validator numberWithin(double min, double max);

// A subcommand that was asked for runs after parsing and answers with an ExitStatus.
using Action = std::function<int()>;

// Each adds one subcommand to app; action is set when the command line names it.
void addLocationCommand(CLI::App& app, const Options& options, Action& action);
void addScanCommand(CLI::App& app, const Options& options, Action& action);
void addImportCommand(CLI::App& app, const Options& options, Action& action);
void addFindCommand(CLI::App& app, const Options& options, Action& action);
void addReadCommand(CLI::App& app, const Options& options, Action& action);
void addPlayCommand(CLI::App& app, const Options& options, Action& action);
void addRecordCommand(CLI::App& app, const Options& options, Action& action);
void addCopyCommand(CLI::App& app, const Options& options, Action& action);
void addVerifyCommand(CLI::App& app, const Options& options, Action& action);
void addRecoverCommand(CLI::App& app, const Options& options, Action& action);
void addDemoCommand(CLI::App& app, const Options& options, Action& action);
void addClipCommand(CLI::App& app, const Options& options, Action& action);
void addStatusCommand(CLI::App& app, const Options& options, Action& action);
void addRmCommand(CLI::App& app, const Options& options, Action& action);
void addProxyCommand(CLI::App& app, const Options& options, Action& action);
void addLinkCommand(CLI::App& app, const Options& options, Action& action);
void addDriveCommand(CLI::App& app, const Options& options, Action& action);
void addShareCommand(CLI::App& app, const Options& options, Action& action);
void addLoginCommand(CLI::App& app, const Options& options, Action& action);
void addLogoutCommand(CLI::App& app, const Options& options, Action& action);
void addWatchCommand(CLI::App& app, const Options& options, Action& action);
void addTopCommand(CLI::App& app, const Options& options, Action& action);
