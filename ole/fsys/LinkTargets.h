#pragma once

#include "Qz/LightweightString.h"

// LinkTargets: tells the log where link files lead.
//
// A link's target is opened as it is written, wherever it is. Whoever wonders later why a clip is offline,
// or why a disk that holds no media location is busy, finds a line in the log.
// Threads:    any.
// Cost:       compares texts with the roots of the registered locations; the platform is not asked.

// Logs one line for each folder of targets that no registered location holds. A target that is relative or
// climbs with ".." counts as held by none: where it leads depends on more than its text. Silent while
// no location is registered.
void tellIfOutsideOfLocations(const LightweightString<wchar_t>& link,
                              const LightweightString<wchar_t>& target);
