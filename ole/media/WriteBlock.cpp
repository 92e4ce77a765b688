#include "media/WriteBlock.h"

#include "media/MediaWriter.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <algorithm>
#include <cstring>
#include <new>

BlockMemory::~BlockMemory()
{
    for (unsigned char* const block : free_)
        OS()->getPageMemory()->release(block, os::pagesRelease);
}

unsigned char* BlockMemory::take()
{
    {
        const std::lock_guard<std::mutex> hold(guard_);
        if (!free_.empty()) {
            unsigned char* const block = free_.back();
            free_.pop_back();
            return block;
        }
    }
    return static_cast<unsigned char*>(OS()->getPageMemory()->allocate(
        nullptr, MediaWriter::blockBytes, os::pagesReserveCommit, os::pagesReadWrite));
}

void BlockMemory::giveBack(unsigned char* block)
{
    try {
        const std::lock_guard<std::mutex> hold(guard_);
        free_.push_back(block);
    } catch (const std::bad_alloc&) {
        OS()->getPageMemory()->release(block, os::pagesRelease);
    }
}

Qz::Ptr<WriteBlock> WriteBlock::make(const std::shared_ptr<BlockMemory>& memory,
                                     const Qz::Ptr<iThreadEvent>& ended, std::uint64_t position)
{
    unsigned char* const buffer = memory->take();
    if (!buffer)
        return {};
    try {
        return Qz::Ptr<WriteBlock>(new WriteBlock(memory, ended, buffer, position));
    } catch (const std::bad_alloc&) {
        memory->giveBack(buffer);
        return {};
    }
}

WriteBlock::WriteBlock(const std::shared_ptr<BlockMemory>& memory, const Qz::Ptr<iThreadEvent>& ended,
                       unsigned char* buffer, std::uint64_t position)
    : memory_(memory), ended_(ended), buffer_(buffer), position_(position), ends_(MediaWriter::blockBytes)
{}

WriteBlock::~WriteBlock() { memory_->giveBack(buffer_); }

unsigned WriteBlock::getSize() const { return static_cast<unsigned>(MediaWriter::blockBytes); }

std::size_t WriteBlock::append(std::span<const std::byte> data)
{
    const std::size_t part = std::min(data.size(), getSize() - used_);
    if (part != 0)
        std::memcpy(buffer_ + used_, data.data(), part);
    used_ += part;
    return part;
}

void WriteBlock::replace(std::uint64_t position, std::span<const std::byte> data)
{
    if (!data.empty())
        std::memcpy(buffer_ + (position - position_), data.data(), data.size());
}

void WriteBlock::endWholeWrite()
{
    ends_[used_ - 1] = true;
    lastEnd_ = used_;
}

std::optional<std::uint64_t> WriteBlock::wholeEnd(std::uint64_t limit) const
{
    if (limit <= position_)
        return std::nullopt;
    auto last = static_cast<std::size_t>(std::min<std::uint64_t>(limit - position_, lastEnd_));
    while (last != 0 && !ends_[last - 1])
        --last;
    return last == 0 ? std::nullopt : std::optional(position_ + last);
}

void WriteBlock::leave(State state, unsigned code)
{
    // The waiter that sees the state may drop the recording's references.
    const Qz::Ptr<iThreadEvent> ended = ended_;
    code_.store(code, std::memory_order_relaxed);
    state_.store(state, std::memory_order_release);
    ended->set();
}

void WriteBlock::completed(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& /*data*/, RequestStatus status)
{
    auto& block = static_cast<WriteBlock&>(*context);
    if (status == eRequestSuccess)
        block.setWritten();
    else
        block.setFailed(lastError());
}
