#pragma once

#include <map>
#include <string>
#include <vector>

// FolderWatch: hears of files that change in folders, also when other processes change them.
//
// Sees what this machine does. Changes that others make on a network file system stay unseen.
class FolderWatch
{
public:
    struct Change
    {
        std::string folder;  // as it was given to add
        std::string name;    // empty: anything in the folder may have changed
    };

    FolderWatch();
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    // False when the system gives out no more watches.
    [[nodiscard]] bool isOpen() const { return fd_ >= 0; }
    // Watches a folder, anew when another one has taken its place; false when there is none or it cannot be
    // watched.
    bool add(const std::string& folder);
    void remove(const std::string& folder);
    // Waits for changes, at most that long; a signal ends the waiting early. A file counts as changed when
    // it was closed by a writer, moved in or out, or removed.
    [[nodiscard]] std::vector<Change> wait(int timeoutMs);

private:
    void readChanges(std::vector<Change>& changes);

    int fd_;
    std::map<std::string, int> watches_;
};
