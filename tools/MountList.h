#pragma once

#include <string>
#include <vector>

// MountList: the mount table, for those who must know what a folder lies on without asking a server that may
// not answer. Reading it always ends.

struct Mount
{
    std::string point;
    std::string type;    // as the kernel names it, "ext4", "fuse.sshfs"
    std::string source;  // "/dev/sda1", "server:/media"
    unsigned major = 0;  // of the block device; 0 for file systems without one
    unsigned minor = 0;
};

// In the order of the table; empty when it cannot be read.
[[nodiscard]] std::vector<Mount> mountList();
// What text says, line by line in the form of /proc/self/mountinfo; a line in any other form is passed over.
[[nodiscard]] std::vector<Mount> mountsIn(const std::string& text);
// The mount that holds path, which has no symlinks in it; null for none.
[[nodiscard]] const Mount* mountHolding(const std::vector<Mount>& mounts, const std::string& path);
// A program or a machine answers for its files, and may stop to.
[[nodiscard]] bool isServed(const Mount& mount);
