#pragma once

#include "FolderWatch.h"
#include "MediaFolder.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

// MediaWatch: keeps the registry and the media cache of this process true to what other processes do to the
// locations of a project space and to the media in them, so that listeners hear of it.
//
// Sees at once what happens on file systems of this machine; looks every second at network locations, at
// folders that cannot be watched, and at the lists of locations.
class MediaWatch
{
public:
    // space: folder of the lists of locations. REQUIRES: a Session has filled registry and cache from it.
    explicit MediaWatch(std::string space);

    // Works for a fifth of a second; less when a signal comes.
    void step();
    // Path that the listeners of the cache are being called for; empty at other times.
    [[nodiscard]] const std::string& currentFile() const { return currentFile_; }
    // False while the root of the location is missing, or only the folder is there that its disk was mounted
    // on.
    [[nodiscard]] bool isOnline(const DriveId& location) const;

private:
    struct Location
    {
        bool online = true;
        bool isNetwork = false;
        std::vector<std::unique_ptr<MediaFolder>> folders;
        std::vector<bool> watched;  // one for each folder
    };

    void take(const FolderWatch::Change& change);
    void followLists();
    bool registerListed();
    bool unregisterUnlisted();
    void followRegistry();
    void followFolders();
    void followFolder(Location& location, std::size_t index);

    std::string space_;
    std::vector<std::string> unmounted_;  // roots, as of the last look
    FolderWatch watch_;
    std::map<DriveId, Location> locations_;
    std::string currentFile_;
    unsigned steps_ = 0;
};
