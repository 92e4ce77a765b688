#pragma once

#include "fsys/MediaFileInfo.h"

// FileRecords: how the cache compares media file records.
namespace FileRecords {

// True when the record stands for a file: it has a drive and a path.
[[nodiscard]] inline bool isPresent(const MaterialFilename& name)
{
    return name.getDrive().valid() && !name.getPath().empty();
}
[[nodiscard]] inline bool isPresent(const MediaFileInfo& file)
{
    return isPresent(file.getMaterialFilename());
}

// Same path (case counts), drive and proxy height. No two proxies of an entry are the same file.
[[nodiscard]] inline bool isSameFile(const MediaFileInfo& a, const MediaFileInfo& b)
{
    const MaterialFilename& nameA = a.getMaterialFilename();
    const MaterialFilename& nameB = b.getMaterialFilename();
    return nameA.getDrive() == nameB.getDrive() && a.getProxyHeight() == b.getProxyHeight() &&
           nameA.getPath() == nameB.getPath();
}

}  // namespace FileRecords
