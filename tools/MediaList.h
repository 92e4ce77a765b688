#pragma once

#include "ClipFiles.h"

#include <vector>

// MediaList: the media files of clips, one by one, for commands that read them all.

struct ListedMedia
{
    Cookie cookie;  // the channel that the file is filed under
    MediaFileInfo file;
    bool isProxy = false;  // by its name
};

// Channel by channel the full-resolution files of all locations, then the proxies; each file once.
[[nodiscard]] std::vector<ListedMedia> mediaOf(const Clip& clip);
