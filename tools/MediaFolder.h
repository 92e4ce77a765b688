#pragma once

#include "ServerQuestion.h"

#include "Qz/Cookie.h"
#include "fsys/DriveId.h"
#include "fsys/MaterialFilename.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

// MediaFolder: keeps the media cache true to one media folder of a location while other processes change it,
// and has the cache's listeners hear of it as if this process had done so.
//
// Nothing on the disk is ever changed. A file counts once it rests: a name that looks is told of when two
// looks, some time apart, see the same. A server that does not answer costs two seconds once; until it does,
// nothing in its folder counts as changed.
class MediaFolder
{
public:
    // name: the folder in the location, "Material" or "Sound". The cache knows the location already.
    // onServer: looking there may never end (isServed).
    MediaFolder(const DriveId& location, const std::string& name, bool onServer);

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] const DriveId& location() const { return location_; }
    [[nodiscard]] bool exists();
    void setOnServer(bool onServer) { onServer_ = onServer; }

    // Something happened to that name.
    void noteChange(const std::string& name);
    // Notes every name that differs from what was seen last.
    void noteDifferences();
    // Looks at the noted names. file is set while listeners run for it.
    void look(std::string& file);

private:
    // What tells one state of a file from another; all zero for none.
    struct Stamp
    {
        std::uint64_t bytes = 0;
        std::int64_t modifiedNs = 0;
        std::uint64_t inode = 0;

        friend bool operator==(const Stamp&, const Stamp&) = default;
    };

    using Names = std::vector<std::string>;
    // None for what cannot be told now.
    using Stamps = std::map<std::string, std::optional<Stamp>>;

    template <class Result>
    Result asked(std::function<Result()> question, Result otherwise);
    [[nodiscard]] Names listing();
    [[nodiscard]] Stamps stampsOf(Names names);
    [[nodiscard]] static std::optional<Stamp> stampAt(const std::string& path);
    [[nodiscard]] MaterialFilename mediaName(const std::string& name) const;
    void tell(const std::string& name, const Stamp& now);

    DriveId location_;
    std::string relative_;                  // with a separator on both sides
    std::string path_;                      // without one at the end
    std::map<std::string, Stamp> seen_;     // media that the cache knows
    std::map<std::string, Stamp> pending_;  // as of the last look
    bool onServer_;
    ServerQuestion server_;
};
