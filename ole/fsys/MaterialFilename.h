#pragma once

#include "Qz/LightweightString.h"
#include "fsys/DriveId.h"
#include "fsys/Export.h"

// MaterialFilename: the name of a media file: a media location and a path relative to its root.
//
// Where no registered location goes with it, the path is used as it stands.
//
// Threads:    a plain value; one that several threads share must not be changed. getOsPath asks the
//             drive registry for the root of that moment, safely while drives come and go.
// Errors:     nothing here fails, and no operation looks at the disk.
class FSYS_API MaterialFilename
{
public:
    // No location and an empty path.
    MaterialFilename() = default;
    // Shares the body of path.
    MaterialFilename(const DriveId& drive, const LightweightString<wchar_t>& path)
        : drive_(drive), path_(path)
    {}

    // The media location; that it is registered is not checked.
    [[nodiscard]] const DriveId& getDrive() const noexcept { return drive_; }
    // The path as stored.
    [[nodiscard]] const LightweightString<wchar_t>& getPath() const noexcept { return path_; }
    // The path by which the operating system reaches the file: the location's root joined with the
    // path, or the path unchanged when the drive is no registered media location.
    [[nodiscard]] LightweightString<wchar_t> getOsPath() const;
    // Puts "." and extension in the place of the path's last extension, or behind a path without one.
    // extension is taken as it is: with a leading dot it gives two dots, an empty one leaves the dot.
    void setExtension(const LightweightString<wchar_t>& extension);

private:
    DriveId drive_;
    LightweightString<wchar_t> path_;
};
