#pragma once

#include "Command.h"

// As those of Command.h.
void addServeCommand(CLI::App& app, const Options& options, Action& action);
