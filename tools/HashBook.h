#pragma once

#include "Qz/LightweightString.h"

#include <cstdint>
#include <map>
#include <string>

// HashBook: the XXH3-128 of media files, kept in the file "MediaHashes.jsonl" of the project space: one JSON
// object per line with the file's name, size and hash.
//
// Names:      without folder. They begin with the clip's cookie, so they stay what they are when a location
// is
//             mounted elsewhere, and copies of a clip share one.
// Writing:    lines are only added, whole and flushed to the device; of several for one name the last one
//             holds. Several processes may write at once. A line that a crash cut short is passed over.
class HashBook
{
public:
    struct Entry
    {
        std::uint64_t bytes = 0;
        std::string hash;  // 32 hexadecimal digits
    };

    // Reads the book of a project space; one that is not there yet is empty.
    explicit HashBook(const std::string& space);

    // Null when none is kept for the file at path.
    [[nodiscard]] const Entry* find(const LightweightString<wchar_t>& path) const;
    // False, after a message, when it could not be kept.
    bool add(const LightweightString<wchar_t>& path, std::uint64_t bytes, const std::string& hash);

private:
    std::string file_;
    std::map<std::string, Entry> entries_;  // by name
};
