#pragma once

#include "Command.h"

// The commands of "location" that look after what is registered: rename, prepare, unmounted, unmount.
void addLocationUpkeep(CLI::App& location, const Options& options, Action& action);
