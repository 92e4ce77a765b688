#pragma once

#include "Qz/LightweightString.h"
#include "fsys/DriveId.h"

#include <pybind11/pybind11.h>
#include <vector>

// Locations: the media locations of the session, and the recordings that were left in them.
//
// Threads:    any.
// Errors:     throws Raised.
namespace locations {

// REQUIRES for all of these: gil::Outside, and an engine::Use.
[[nodiscard]] std::vector<DriveId> all();
// False while the root is missing, or only the folder is there that its disk was mounted on.
[[nodiscard]] bool isOnline(DriveId location);
// A root as the registry compares it.
[[nodiscard]] LightweightString<wchar_t> withSeparator(const LightweightString<wchar_t>& root);

// Adds the functions of the module that deal with locations.
void addTo(pybind11::module_& module);

}  // namespace locations
