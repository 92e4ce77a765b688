#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "fsys/DriveId.h"
#include "fsys/MaterialFilename.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>

// What happened. kind: of a file clip-online, clip-offline, proxy-online, proxy-offline, told of a file that
// can be read now and could not before, or the other way round; of a location location-added, -removed,
// -online, -offline, -renamed.
struct WatchEvent
{
    const char* kind = "";
    Cookie cookie;                    // of a file
    LightweightString<wchar_t> path;  // of the file, or the root of the location
    DriveId location;
    LightweightString<wchar_t> name;  // of the location
};
using Tell = std::function<void(const WatchEvent&)>;

// WatchedFolder: one media folder of a location; keeps the index true to it and tells what changes.
//
// Nothing on the disk is changed. New media counts once it rests: when two looks see the same size and time.
// Threads:    one at a time.
// Cost:       a look at a folder that rests asks for its time, and whether the target of each link is there.
//             It is listed when its time tells that names came or went. So a file that is rewritten in place
//             is told of with the next change of a name.
class WatchedFolder
{
public:
    // relative: "/Material/" or "/Sound/".
    WatchedFolder(DriveId location, const LightweightString<wchar_t>& relative);

    // REQUIRES for all of these: an engine::Use.
    void look(const Tell& tell);
    // The location has gone: no file can be read.
    void goOffline(const Tell& tell);

private:
    struct Stamp
    {
        std::uint64_t bytes = 0;
        std::filesystem::file_time_type time{};

        friend bool operator==(const Stamp&, const Stamp&) = default;
    };
    struct File
    {
        Cookie cookie;
        Stamp stamp;
        bool isProxy = false;
        LightweightString<wchar_t> target;  // what a link points at; else empty
        bool online = false;
    };
    using Name = std::wstring;

    [[nodiscard]] MaterialFilename mediaName(const Name& name) const;
    [[nodiscard]] LightweightString<wchar_t> pathOf(const Name& name) const;
    // None when there is no such file, or it has no bytes.
    [[nodiscard]] std::optional<Stamp> stampOf(const Name& name) const;
    // Names may have come or gone since the last listing.
    bool hasChanged();
    void list(const Tell& tell);
    void settle(const Tell& tell);
    void take(const Name& name, const Stamp& stamp, const Tell& tell);
    void drop(const Name& name, const Tell& tell);
    void setOnline(const Name& name, File& file, bool online, const Tell& tell) const;

    const DriveId location_;
    const LightweightString<wchar_t> relative_;
    const LightweightString<wchar_t> folder_;       // with a separator at its end
    std::filesystem::file_time_type listedTime_{};  // of the folder, when it was listed
    bool isSettledTime_ = false;                    // nothing more can happen within that time
    std::map<Name, File> files_;
    std::map<Name, std::optional<Stamp>> pending_;  // as of the last look
};
