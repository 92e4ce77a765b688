#pragma once

#include "Qz/Ptr.h"
#include "Qz/iMemHolder.h"
#include "fsys/CompletionFunction.h"
#include "os/iThreadEvent.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

// BlockMemory: page-aligned memory for the blocks of one recording, used again and again.
//
// Threads:    any. Blocks come back on whichever thread drops the last reference to one.
// Ownership:  shared by the recording and its blocks, for the engine may keep a block longer than the
//             recording lives.
class BlockMemory
{
public:
    BlockMemory() = default;
    ~BlockMemory();
    BlockMemory(const BlockMemory&) = delete;
    BlockMemory& operator=(const BlockMemory&) = delete;

    // Null when there is no memory.
    [[nodiscard]] unsigned char* take();
    void giveBack(unsigned char* block);

private:
    std::mutex guard_;
    std::vector<unsigned char*> free_;
};

// WriteBlock: the bytes of a recording from one place on, up to a block, and what has become of them.
//
// It is its own context: a completion function gets the block that it is about.
//
// Threads:    filled by the recording's thread; state and code may be asked while it is under way.
// Positions:  bytes from the start of the file.
class WriteBlock : public iMemHolder
{
public:
    enum class State : unsigned { filling, underWay, written, failed };

    // Null when there is no memory. ended is set whenever the block has left the state underWay.
    [[nodiscard]] static Qz::Ptr<WriteBlock> make(const std::shared_ptr<BlockMemory>& memory,
                                                  const Qz::Ptr<iThreadEvent>& ended, std::uint64_t position);
    ~WriteBlock() override;

    [[nodiscard]] unsigned char* getBuffer() const override { return buffer_; }
    [[nodiscard]] unsigned getSize() const override;
    [[nodiscard]] unsigned getUsed() const override { return static_cast<unsigned>(used_); }
    void setUsed(unsigned /*bytes*/) override {}

    // Takes what has room; the number of bytes.
    std::size_t append(std::span<const std::byte> data);
    // Replaces bytes from a position of the file on. REQUIRES: they were appended.
    void replace(std::uint64_t position, std::span<const std::byte> data);
    [[nodiscard]] bool isFull() const { return used_ == getSize(); }
    // Notes that a write of the caller ends with the last byte. REQUIRES: there is one.
    void endWholeWrite();
    // The end of the last whole write that ends in this block and not behind limit.
    [[nodiscard]] std::optional<std::uint64_t> wholeEnd(std::uint64_t limit) const;

    [[nodiscard]] std::uint64_t position() const { return position_; }
    [[nodiscard]] std::uint64_t end() const { return position_ + used_; }
    [[nodiscard]] State state() const { return state_.load(std::memory_order_acquire); }
    // Why it failed, as of os/LastError.h.
    [[nodiscard]] unsigned code() const { return code_.load(std::memory_order_relaxed); }

    void setUnderWay() { state_.store(State::underWay, std::memory_order_release); }
    void setWritten() { leave(State::written, 0); }
    void setFailed(unsigned code) { leave(State::failed, code); }
    // For DirectWrite.
    static void completed(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status);

private:
    WriteBlock(const std::shared_ptr<BlockMemory>& memory, const Qz::Ptr<iThreadEvent>& ended,
               unsigned char* buffer, std::uint64_t position);
    void leave(State state, unsigned code);

    const std::shared_ptr<BlockMemory> memory_;
    const Qz::Ptr<iThreadEvent> ended_;
    unsigned char* const buffer_;
    const std::uint64_t position_;
    std::size_t used_ = 0;
    // One bit for each byte: a whole write ends with it. A list of the ends would outgrow the block itself
    // when somebody records byte by byte.
    std::vector<bool> ends_;
    std::size_t lastEnd_ = 0;  // the highest of them, plus 1; 0 for none
    std::atomic<State> state_{State::filling};
    std::atomic<unsigned> code_{0};
};
