#pragma once

#include "Qz/LightweightString.h"

#include <cstdint>
#include <functional>

// SpaceWatch: tells when a disk gets low on space, once each time it falls below the limit.
//
// The disk is asked as often as what is written could take it there, and not for every write.
//
// Threads:    one at a time, which is also the one that is told.
// Errors:     a disk that does not know its space is not watched. What the listener throws is dropped.
class SpaceWatch
{
public:
    using Listener = std::function<void(std::uint64_t freeBytes)>;

    SpaceWatch(const LightweightString<wchar_t>& path, std::uint64_t lowBytes, const Listener& listener);

    // Asks the disk now.
    void look();
    // Asks it when so many more bytes make that due.
    void wrote(std::uint64_t bytes);

private:
    const LightweightString<wchar_t> path_;
    const std::uint64_t lowBytes_;
    const Listener listener_;
    bool isLow_ = false;
    std::uint64_t bytesUntilDue_ = 0;
};
