#pragma once

#include "ClipFiles.h"
#include "fsys/MediaLocationInfo.h"

#include <vector>

// MediaSummary: where the media of one clip are and whether they can be reached.

struct TestedChannel
{
    Cookie cookie;
    std::optional<TestedFile> high;
    std::vector<TestedFile> proxies;
};

struct MediaSummary
{
    std::vector<TestedChannel> channels;
    MediaLocationInfo info;  // of all channels together

    // "all", "some" or "none" of the full-resolution files; "all" for a clip that has none.
    [[nodiscard]] const char* offline() const;
    // What the user calls the location of the first full-resolution file; empty without one.
    [[nodiscard]] std::string primaryLocation() const;
    // The first file that a link of the clip points at, resolved; empty without links.
    [[nodiscard]] std::string linkedLocation() const;
    // Every location that holds a file of the clip, proxies too, each once.
    [[nodiscard]] std::vector<DriveId> locations() const;
};

// Tests every file of the clip on the disk.
[[nodiscard]] MediaSummary summarise(const Clip& clip);
