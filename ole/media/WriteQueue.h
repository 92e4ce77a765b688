#pragma once

#include "Qz/Ptr.h"
#include "media/WriteBlock.h"
#include "os/iThreadEvent.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// WriteQueue: the blocks of a recording that were handed to the disk, in the order of their places.
//
// A block leaves the queue when it and all before it are on the disk, so what the queue has let go is a
// part of the file without gaps, and what it holds can still be written another way.
//
// Threads:    the recording's. Completions reach it through the blocks and the event.
class WriteQueue
{
public:
    // How a wait went.
    enum class Wait { done, failed, stalled };

    // stallLimitMs: a wait in which nothing ends for so long is given up; 0 waits for ever.
    WriteQueue(std::size_t blocksMax, unsigned stallLimitMs);

    // What blocks set when they end.
    [[nodiscard]] const Qz::Ptr<iThreadEvent>& ended() const { return ended_; }
    // Takes no memory. REQUIRES: fewer than blocksMax are held.
    void add(const Qz::Ptr<WriteBlock>& block) { blocks_.push_back(block); }
    void clear() { blocks_.clear(); }

    // Lets go what is on the disk; true when a block has failed.
    bool collect();
    // Waits until at most so many blocks are held, or one has failed. *waited is set when that was not so
    // from the start.
    Wait waitUntilAtMost(std::size_t blocks, bool* waited = nullptr);
    // Waits until none is under way, however they end.
    Wait waitUntilAllEnded();

    // Of the first block that has failed.
    [[nodiscard]] unsigned failureCode() const;
    // All bytes before it are on the disk.
    [[nodiscard]] std::uint64_t writtenEnd() const { return writtenEnd_; }
    // True when blocks that are on the disk are held because of one before them.
    [[nodiscard]] bool hasWrittenBehind() const;
    // The end of the last whole write that does not end behind limit. REQUIRES: limit >= writtenEnd().
    [[nodiscard]] std::uint64_t wholeEnd(std::uint64_t limit) const;
    [[nodiscard]] const std::vector<Qz::Ptr<WriteBlock>>& blocks() const { return blocks_; }

private:
    template <class Ready>
    Wait waitUntil(Ready ready);

    const unsigned stallLimitMs_;
    const Qz::Ptr<iThreadEvent> ended_;
    std::vector<Qz::Ptr<WriteBlock>> blocks_;  // has room for blocksMax
    std::uint64_t writtenEnd_ = 0;
    std::uint64_t wholeEnd_ = 0;  // of what has been let go
};
