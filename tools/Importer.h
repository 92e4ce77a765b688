#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "fsys/DriveId.h"
#include "fsys/MaterialFilename.h"

#include <cstdint>
#include <optional>
#include <string>

// Importer: brings media files into a media location under a cookie, and tells the media cache.

struct ImportRequest
{
    std::string file;  // on this machine
    DriveId location{'0'};
    bool asLink = false;  // a link file in place of a copy
    Cookie cookie;        // whose file it becomes
    bool isProxy = false;
    unsigned proxyHeight = 0;  // lines
    unsigned char proxyChannels = 0;
};

struct Imported
{
    Cookie cookie;
    LightweightString<wchar_t> file;  // in the media location
    std::uint64_t bytes = 0;          // of the media itself
    std::string hash;                 // XXH3-128; empty for a link
};

// None, after a message, when it could not be done; nothing is then left behind.
[[nodiscard]] std::optional<Imported> importMedia(const ImportRequest& request);

// Where media of cookie lies at a location.
[[nodiscard]] MaterialFilename nameInLocation(const ImportRequest& request);
