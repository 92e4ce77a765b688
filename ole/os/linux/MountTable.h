#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace os {

// One line of the mount table.
struct MountEntry
{
    int id = 0;
    int parentId = 0;
    unsigned major = 0;  // device number; major 0 is no block device
    unsigned minor = 0;
    std::string root;        // the folder of the file system that is mounted
    std::string mountPoint;  // without trailing separator, except "/"
    std::string fsType;
    std::string source;
    bool readOnly = false;
};

// The entries of a text in the form of /proc/self/mountinfo. Lines that are none are left out.
[[nodiscard]] std::vector<MountEntry> parseMountInfo(std::string_view text);

// MountTable: which mount holds a path, from text alone: never asks the disk, so it answers while a
// server hangs.
//
// Threads: immutable.
class MountTable
{
public:
    MountTable() = default;
    explicit MountTable(std::vector<MountEntry> entries);

    [[nodiscard]] const std::vector<MountEntry>& entries() const { return entries_; }
    // The mount that holds an absolute, tidy path without links, or null. Of mounts over the same point
    // the one on top counts; a mount below a covered folder does not.
    [[nodiscard]] const MountEntry* find(std::string_view path) const;
    // The mount that is seen at exactly this point, or null.
    [[nodiscard]] const MountEntry* mountedAt(std::string_view point) const;

private:
    [[nodiscard]] const MountEntry* root() const;
    [[nodiscard]] const MountEntry* descend(const MountEntry* mount, std::string_view point) const;
    [[nodiscard]] const MountEntry* longestPrefix(std::string_view path) const;

    std::vector<MountEntry> entries_;
    std::unordered_multimap<std::string, std::size_t> byPoint_;
};

}  // namespace os
