#pragma once

#include "Help.h"

#include <string>
#include <vector>

// CommandTree: what the command takes, told apart from the parser that takes it: what manual pages and
// completions are made of, so that they say what --help says.

// What stands behind an option, or for a positional argument.
enum class Takes {
    nothing,  // an option that is there or is not
    text,
    number,
    size,  // a number of bytes, with or without a unit
    choice,
    file,
    folder,
    location,
    cookie,
    cookieOrFile,
};

struct Argument
{
    std::vector<std::string> names = {};  // "-h", "--help"; of a positional argument one: "COOKIE"
    std::string value = {};               // the word that stands for what it takes: "DIR"
    Takes takes = Takes::nothing;
    std::vector<std::string> choices = {};
    std::string meaning = {};
    std::string least = {};
    std::string most = {};
    std::string byDefault = {};
    std::vector<std::string> needs = {};
    std::vector<std::string> excludes = {};
    bool required = false;
    bool repeats = false;  // a positional argument that takes all words that follow
};

struct CommandNode
{
    std::vector<std::string> words = {};  // of its command line: "fsys", "location", "add"
    std::string summary = {};
    CommandHelp help = {};
    std::vector<Argument> options = {};
    std::vector<Argument> positionals = {};
    std::vector<CommandNode> commands = {};
    bool standsAlone = true;  // does something without one of its commands
};

// REQUIRES: every command was given its help.
[[nodiscard]] CommandNode treeOf(const CLI::App& app);

// "fsys location add"
[[nodiscard]] std::string lineOf(const CommandNode& command, const char* between = " ");
// The node and all below it, each before those below it.
[[nodiscard]] std::vector<const CommandNode*> allOf(const CommandNode& tree);
