#pragma once

#include <CLI/CLI.hpp>

#include <string>

// Help: what stands below the options in the help of a command, the same for all of them: what people and
// scripts have to know beyond the options. Texts are filled into lines; each "\n" begins a new one.

struct CommandHelp
{
    std::string notes = {};         // what the command does that its name does not say
    std::string keys = {};          // of its JSON, with their units
    std::string done = "done";      // what exit status 0 means
    std::string no = {};            // what 1 means; empty for a command that never answers no
    std::string failed = "failed";  // what 3 means
    std::string example = {};       // a whole command line
};

void addHelp(CLI::App& command, const CommandHelp& help);
// For a command that has commands of its own and does nothing without one.
void addGroupHelp(CLI::App& group, const std::string& example);
// For the command line as a whole.
void addCommonHelp(CLI::App& app);

// What the help of command says below the options, in its parts; of a group and of the command line as a
// whole those parts alone that they have. Null when command was given none.
[[nodiscard]] const CommandHelp* helpOf(const CLI::App& command);
