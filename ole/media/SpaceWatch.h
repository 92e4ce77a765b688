#pragma once

#include "Qz/LightweightString.h"

#include <cstdint>
#include <functional>

// SpaceWatch: tells when a disk gets low on space, once each time it falls below the limit.
//
// The disk is asked as often as what is written could take it there, and not for every write. What it has
// yet to take counts as taken, so that the news comes before the disk is full and not after.
//
// Threads:    one at a time, which is also the one that is told.
// Errors:     a disk that does not know its space is not watched. What the listener throws is dropped.
class SpaceWatch
{
public:
    using Listener = std::function<void(std::uint64_t freeBytes)>;

    SpaceWatch(const LightweightString<wchar_t>& path, std::uint64_t lowBytes, const Listener& listener);

    // Asks the disk now; it has yet to take so many bytes.
    void look(std::uint64_t underWay);
    // Asks it when so many more bytes, which are about to be written, make that due.
    void willWrite(std::uint64_t bytes, std::uint64_t underWay);

private:
    const LightweightString<wchar_t> path_;
    const std::uint64_t lowBytes_;
    const Listener listener_;
    bool isLow_ = false;
    std::uint64_t bytesUntilDue_ = 0;
};
