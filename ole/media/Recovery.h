#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "fsys/DriveId.h"
#include "media/Export.h"
#include "media/MediaError.h"

#include <cstdint>
#include <vector>

// Recovery: recordings that were not finished, because the program, the machine or the disk stopped.

// One recording that was not finished, as it was found.
struct UnfinishedRecording
{
    DriveId location{'0'};                 // whose media folders it lies in
    LightweightString<wchar_t> path;       // of the unfinished file
    LightweightString<wchar_t> finalPath;  // what it is to become
    Cookie cookie;                         // from its name; not valid when that is no clip's
    std::uint64_t bytes = 0;               // of the file
    // From the start up to the first byte that never reached the disk: what finishUnfinished keeps. As the
    // file system accounts for it: after a flush that failed (flushFailed; an I/O error in the log of the
    // kernel) some of these may be zeros behind the last flush that succeeded, and nothing on the disk tells
    // which.
    std::uint64_t goodBytes = 0;
    std::int64_t modifiedNs = 0;  // last written, nanoseconds since 1970
    // A recorder is still at work, here or in another program. True also when nobody can tell: the file
    // cannot be opened for writing (bytes is then as listed and goodBytes 0), or its file system carries no
    // claims (iFile::claim), as some network file systems do. There every recording counts as in use for
    // ever; a user who knows that its recorder is gone renames the file by hand.
    bool inUse = false;
};

// The unfinished recordings in the media folders of a location, by path; none for a location that is not
// registered or cannot be reached.
[[nodiscard]] MEDIA_API std::vector<UnfinishedRecording> findUnfinished(const DriveId& location);

// Cuts the file to its good bytes (as they are now), flushes it to the device, gives it its final name and
// tells the media cache when it is a clip's. An error leaves it unfinished: unfinished when a recorder is at
// work, alreadyExists when there is a file of the final name, invalidArgument when no byte is good or path
// is no unfinished recording's, notFound when it is gone. After renameFailed it may have its final name, and
// the cache know of it, but lose it again with the power. flushFailed: the disk failed to take what was
// written, perhaps also what a recorder wrote before it died.
[[nodiscard]] MEDIA_API MediaError finishUnfinished(const UnfinishedRecording& recording);
// Removes the file. An error leaves it: unfinished when a recorder is at work, notFound when it is gone.
[[nodiscard]] MEDIA_API MediaError removeUnfinished(const UnfinishedRecording& recording);
