#pragma once

#include "os/linux/MountTableReader.h"

#include <memory>
#include <string>

namespace os {

// Place: where a path lies.
struct Place
{
    std::shared_ptr<const MountTable> table;  // keeps the entries alive
    const MountEntry* mount = nullptr;        // holds the path, or its nearest existing ancestor
    const MountEntry* server = nullptr;       // first mount on the way that may hang, or null
    bool exists = false;                      // as far as could be seen without asking a server
    std::string path;                         // absolute; without links as far as could be seen
};

// The lane of BoundedCalls that serves a mount.
[[nodiscard]] std::string laneName(const MountEntry& mount);

// Places: finds the mount of a path without ever waiting for a server.
//
// Follows links component by component on file systems of this machine, as the kernel would. From the
// first mount that may hang on, only the text of the path and the mount table are looked at.
//
// Threads: any. Errors: none; a path that leads nowhere has the mount of its nearest ancestor.
class Places
{
public:
    explicit Places(MountTableReader& mounts) : mounts_(mounts) {}

    // A relative path is taken from the working directory.
    [[nodiscard]] Place find(const std::string& path) const;

private:
    MountTableReader& mounts_;
};

}  // namespace os
