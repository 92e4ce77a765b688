#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "fsys/DecodeFormat.h"

#include <pybind11/pybind11.h>

// Clips: what the index knows of clips, tested on the disk.
//
// The index keeps the status of a file as it was tested first. A script may run for days, so everything here
// tests again, and has the index forget a status that does not hold any more.
// Threads:    any.
// Errors:     throws Raised.
namespace clips {

// The complete form, or the short one for the clip's picture. Throws "invalidArgument".
[[nodiscard]] Cookie cookieOf(const pybind11::str& text);
// "high", "proxy" or "auto"; a height in lines, or 0. Throws "invalidArgument".
[[nodiscard]] DecodeFormat formatOf(const pybind11::str& level, unsigned height);
// REQUIRES: an engine::Use.
void testAgain(const Cookie& cookie);

// The file to open for a clip.
struct Found
{
    bool known = false;
    LightweightString<wchar_t> path;  // empty when there is nothing to open
    bool isProxy = false;
    bool online = false;
    bool insteadOf = false;  // a proxy that is there, where what the index would open is gone
};
// REQUIRES: gil::Outside.
[[nodiscard]] Found find(const Cookie& cookie, const DecodeFormat& format);

// Adds the functions of the module that ask for clips.
void addTo(pybind11::module_& module);

}  // namespace clips
