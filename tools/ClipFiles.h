#pragma once

#include "Answer.h"
#include "Qz/Cookie.h"
#include "Qz/Ptr.h"
#include "fsys/FsysDirectoryEntry.h"
#include "fsys/MediaFileInfo.h"

#include <optional>
#include <string>
#include <vector>

// ClipFiles: the files that the media cache knows for clips, and what there is to tell of each.

// One channel of a clip that has files.
struct ClipChannel
{
    Cookie cookie;
    Qz::Ptr<FsysDirectoryEntry> entry;
};

// Channels that share their clip, vision before sound, in the order of their numbers.
using Clip = std::vector<ClipChannel>;

// All channels of cookie's clip, also behind a gap in their numbers; empty for an unknown clip.
[[nodiscard]] Clip everyChannelOf(const Cookie& cookie);
// Every clip of the index, in the order of their cookies.
[[nodiscard]] std::vector<Clip> everyClip();

// The cookie that text names when the cache knows files of it; none, after a message, otherwise.
[[nodiscard]] std::optional<Cookie> knownCookie(const std::string& text);

// A media file, tested.
struct TestedFile
{
    MediaFileInfo record;
    LightweightString<wchar_t> path;
    bool isLink = false;
    LightweightString<wchar_t> target;  // what a link points at
    bool targetExists = false;
    std::uint64_t bytes = 0;  // of the media: of a link those of its target, 0 when that is missing
    unsigned status = 0;      // an eMediaStatus

    [[nodiscard]] DriveId location() const { return record.getMaterialFilename().getDrive(); }
    // Lines; none when the name tells no height.
    [[nodiscard]] std::optional<unsigned> proxyHeight() const;
};

// None when the channel has no full-resolution file.
[[nodiscard]] std::optional<TestedFile> highResFileOf(const ClipChannel& channel);
[[nodiscard]] std::vector<TestedFile> proxyFilesOf(const ClipChannel& channel);
// Files of the same name and folder on other locations. The cache knows one full-resolution file of a
// cookie, the one that was found last; the others may be nobody's.
[[nodiscard]] std::vector<TestedFile> copiesOf(const TestedFile& file);

// "unknown", "offline", "online"
[[nodiscard]] const char* statusText(unsigned status);
// Keys: file, bytes, link, target, target_exists (both null unless link), location, location_name, status.
[[nodiscard]] Json describeFile(const TestedFile& file);
