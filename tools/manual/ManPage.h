#pragma once

#include "CommandTree.h"

#include <string>

// ManPage: the manual page of one command, in roff.

// tree: all commands, to name the page's neighbours. version: of the system, for the page's foot.
[[nodiscard]] std::string manPage(const CommandNode& tree, const CommandNode& command,
                                  const std::string& version);

// "fsys-location-add.1"
[[nodiscard]] std::string pageName(const CommandNode& command);
