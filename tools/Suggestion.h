#pragma once

#include <CLI/CLI.hpp>

#include <string>

// Suggestion: which command somebody may have meant.

// The command of level, or of all commands, that is nearest to word, as it is written behind "fsys"
// ("location list"); empty when none is near. Nearness: letters that are missing, too many, wrong or
// swapped; a command that begins with word is near.
[[nodiscard]] std::string nearestCommand(const CLI::App& level, const std::string& word);
