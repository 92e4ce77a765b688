#pragma once

#include "Command.h"

#include <string>
#include <vector>

// CommandLine: the words behind "fsys", taken apart into options and one action.
class CommandLine
{
public:
    CommandLine();

    // words: without the program's name. exitDone with an action, or without one when help was asked for and
    // given; exitUsage after a message when the words are no command. May be called again; options keep what
    // an earlier call gave them.
    [[nodiscard]] int parse(std::vector<std::string> words);
    // What the words ask for; empty when there is nothing to do.
    [[nodiscard]] const Action& action() const { return action_; }
    [[nodiscard]] const Options& options() const { return options_; }
    // Every command with its options, for those who describe them.
    [[nodiscard]] const CLI::App& app() const { return app_; }

private:
    CLI::App app_{
        "Media file-system layer: media locations, clips, and reading them at the speed of playback.",
        "fsys"};
    Options options_;
    Action action_;
};
