#pragma once

#include "support/Export.h"

// The configuration integer of that name, or defaultValue.
//
// Sources:    the environment variable FSYS_CFG_<key>; else the file that FSYS_CONFIG names, or without
//             that ${XDG_CONFIG_HOME:-~/.config}/fsys/fsys.conf, then /etc/fsys.conf. The first that has
//             the key decides. The files are read once, at the first call.
// Files:      lines "key = value"; '#' starts a comment; of several lines for one key the last holds.
//             At most 1 MiB. Lines of another form are reported on standard error and passed over; so is
//             a file that cannot be used, or that FSYS_CONFIG names and is missing.
// Values:     decimal, in the range of int; a value that is none is reported on standard error, once per
//             key, with its file and line or its variable, and the default is used.
// Threads:    any; usable from static initialisers.
[[nodiscard]] SUPPORT_API int config_int(const char* key, int defaultValue);

// Sees a question and its answer.
using ConfigObserver = void (*)(const char* key, int defaultValue, int answer);
// Has observer see every question from now on; null ends that. For tests.
SUPPORT_API void setConfigObserver(ConfigObserver observer);
