#pragma once

#include "Meter.h"
#include "Work.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// PlayStream: one file whose frames are read in order, ahead of the clock that plays them.
//
// Threads:    allow and consumed come from the player's thread; arrivals are read by it at any time.
// Ownership:  a frame's memory is held from its arrival until consumed.
class PlayStream
{
public:
    PlayStream(const std::string& path, const Work& work, std::uint64_t frames);
    virtual ~PlayStream() = default;
    PlayStream(const PlayStream&) = delete;
    PlayStream& operator=(const PlayStream&) = delete;

    // Frames with numbers below before may be read.
    virtual void allow(std::uint64_t before) = 0;
    // The frame was shown.
    virtual void consumed(std::uint64_t frame) = 0;
    [[nodiscard]] bool isThere(std::uint64_t frame) const { return arrivals_[frame] != 0; }
    [[nodiscard]] bool cameBy(std::uint64_t frame, SteadyClock::time_point due) const
    {
        const auto arrival = arrivals_[frame].load();
        return arrival != 0 && arrival <= due.time_since_epoch().count();
    }

protected:
    // To be called by whatever receives a frame; every so-manieth takes its time.
    void arrived(std::uint64_t frame);
    [[nodiscard]] std::uint64_t positionOf(std::uint64_t frame) const
    {
        // Moved on a little each time round, as in Claims.
        return frame % framesInFile_ * work_.block + frame / framesInFile_ * 4096 % work_.block;
    }

    const Work& work_;
    const std::uint64_t frames_;

private:
    const std::uint64_t framesInFile_;
    std::vector<std::atomic<SteadyClock::rep>> arrivals_;  // 0: not there yet
};

// "fsys"; "pread" (a thread each, unbuffered), "ffmpeg" (a thread each, avio_read), "ahead" (a thread each
// that reads ahead through the page cache in pieces of 128 KiB).
[[nodiscard]] std::unique_ptr<PlayStream> makeFsysStream(const std::string& path, const Work& work,
                                                         std::uint64_t frames);
[[nodiscard]] std::unique_ptr<PlayStream> makeThreadStream(const std::string& path, const Work& work,
                                                           std::uint64_t frames);

namespace peers {

Json play(const Work& work);

}  // namespace peers
