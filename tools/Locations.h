#pragma once

#include "Qz/LightweightString.h"
#include "fsys/DriveId.h"

#include <optional>
#include <string>
#include <vector>

// Locations: media locations as commands name them to people.

// What the user calls the location; empty when it is not registered.
[[nodiscard]] std::string nameOf(const DriveId& location);
// Its root, without separator; empty when it is not registered.
[[nodiscard]] std::string rootOf(const DriveId& location);
// "1 Raid A"; "-" for no location.
[[nodiscard]] std::string labelOf(const DriveId& location);
// folder with a separator at its end.
[[nodiscard]] std::string withSeparator(std::string folder);
// Roots that somebody has added to the project space, each with a separator at its end; also those that are
// away.
[[nodiscard]] std::vector<std::string> listedRoots(const std::string& space);
// The ids of all that are registered, in their order.
[[nodiscard]] std::vector<DriveId> allLocations();
// The location whose folder holds path; the innermost where one holds another.
[[nodiscard]] std::optional<DriveId> locationHolding(const LightweightString<wchar_t>& path);
// findLocation (Session.h), with a message when there is none.
[[nodiscard]] std::optional<DriveId> knownLocation(const std::string& idOrPath);
// Says on standard error which listed locations cannot be reached.
void complainAboutMissingLocations();
