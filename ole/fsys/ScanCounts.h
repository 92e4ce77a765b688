#pragma once

#include <cstdint>

// ScanCounts: what scans found, in numbers of files but for clips.
struct ScanCounts
{
    std::uint64_t files = 0;              // listed
    std::uint64_t clips = 0;              // filed for the first time by a listed file
    std::uint64_t augmented = 0;          // files of clips that had an entry
    std::uint64_t proxies = 0;            // accepted files that are proxies
    std::uint64_t skippedEmpty = 0;       // no bytes
    std::uint64_t skippedIneligible = 0;  // companions of media files
    std::uint64_t skippedNotCookie = 0;   // named after no cookie

    // Adds every count of other.
    ScanCounts& operator+=(const ScanCounts& other)
    {
        files += other.files;
        clips += other.clips;
        augmented += other.augmented;
        proxies += other.proxies;
        skippedEmpty += other.skippedEmpty;
        skippedIneligible += other.skippedIneligible;
        skippedNotCookie += other.skippedNotCookie;
        return *this;
    }
};
