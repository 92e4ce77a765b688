#pragma once

#include "FolderWatch.h"
#include "MediaFolder.h"
#include "MountList.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

// Whether a location can be reached.
enum class Reach {
    online,
    offline,        // its root is missing, or only the folder is there that its disk was mounted on
    notResponding,  // its server does not answer
};

// Of a folder by its path, with a separator at its end.
[[nodiscard]] Reach reachOf(const std::string& root);

// MediaWatch: keeps the registry and the media cache of this process true to what other processes do to the
// locations of a project space and to the media in them, so that listeners hear of it.
//
// Sees at once what happens on file systems of this machine; looks every second at network locations, at
// folders that cannot be watched, and at the lists of locations. A location whose server stops answering
// holds it up for a few seconds, once.
class MediaWatch
{
public:
    // space: folder of the lists of locations. REQUIRES: a Session has filled registry and cache from it.
    explicit MediaWatch(std::string space);

    // Works for a fifth of a second; less when a signal comes.
    void step();
    // Path that the listeners of the cache are being called for; empty at other times.
    [[nodiscard]] const std::string& currentFile() const { return currentFile_; }
    // As of the last look; online for a location that was not looked at yet.
    [[nodiscard]] Reach reach(const DriveId& location) const;
    [[nodiscard]] bool isOnline(const DriveId& location) const { return reach(location) == Reach::online; }
    // Roots, each with a separator at its end, that are listed and not registered, because they cannot be
    // reached or written now.
    [[nodiscard]] std::vector<std::string> missingRoots() const;

private:
    struct Location
    {
        Reach reach = Reach::online;
        bool onServer = false;
        std::vector<std::unique_ptr<MediaFolder>> folders;
        std::vector<bool> watched;  // one for each folder
    };

    void take(const FolderWatch::Change& change);
    void followLists();
    bool registerListed();
    bool unregisterUnlisted();
    void followRegistry();
    void followFolders();
    static void followServer(const DriveId& id, Location& location, const std::vector<Mount>& mounts);
    void followFolder(Location& location, std::size_t index);

    std::string space_;
    std::vector<std::string> unmounted_;  // roots, as of the last look
    FolderWatch watch_;
    std::map<DriveId, Location> locations_;
    std::string currentFile_;
    unsigned steps_ = 0;
};
