#include "fsys/MaterialFilename.h"

#include "support/PathHelpers.h"

#include "fsys/DiskManager.h"

LightweightString<wchar_t> MaterialFilename::getOsPath() const
{
    if (!DiskManager::isMaterialVolume(drive_))
        return path_;
    return joinPaths(DiskManager::getMaterialVolumeName(drive_, true), path_);
}

void MaterialFilename::setExtension(const LightweightString<wchar_t>& extension)
{
    path_ = stripExtension(path_) + L'.' + extension;
}
