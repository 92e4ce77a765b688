#pragma once

#include "CommandTree.h"

#include <string>

// Completion: what shells need to complete a command line. Each fills the gaps of a template, a script of
// that shell in which "@NAME@", alone on its line or behind other words, stands for what comes from the
// command.

[[nodiscard]] std::string bashCompletion(const CommandNode& tree, std::string script);
[[nodiscard]] std::string fishCompletion(const CommandNode& tree, std::string script);
[[nodiscard]] std::string zshCompletion(const CommandNode& tree, std::string script);

// What the three share.

// Throws when the script has no such gap.
void fillGap(std::string& script, const std::string& gap, const std::string& text);
[[nodiscard]] std::string joinedWords(const std::vector<std::string>& words, const char* between);
// The words behind "fsys": "location add".
[[nodiscard]] std::string lineBehind(const CommandNode& command);
// The options of the command itself; that for help is one of the general ones.
[[nodiscard]] std::vector<Argument> ownOptions(const CommandNode& command);
// text between two marks, as one word of a shell in which a mark inside is written as escapedMark.
[[nodiscard]] std::string quoted(const std::string& text, const char* escapedMark);
