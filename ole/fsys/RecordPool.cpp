#include "fsys/RecordPool.h"

#include "os/Codes.h"
#include "os/OS.h"

#include <algorithm>
#include <new>
#include <utility>

namespace {

constexpr std::size_t firstSlabBytes = std::size_t{16} << 10;
// With so much of plain memory slabs become pages, of which only those that are touched cost anything: four
// huge ones, more than the platform would cut from where it keeps the blocks of transfers.
constexpr std::size_t plainBytesMax = std::size_t{2} << 20;
constexpr std::size_t pageSlabBytes = std::size_t{8} << 20;
constexpr std::align_val_t lineAlignment{64};

}  // namespace

RecordPool::RecordPool(std::size_t recordBytes)
    : recordBytes_((recordBytes + alignment - 1) / alignment * alignment)
{}

RecordPool::~RecordPool() { dropSlabs(); }

void* RecordPool::take()
{
    if constexpr (!cutsSlabs)
        return ::operator new(recordBytes_, lineAlignment);
    const std::lock_guard hold(lock_);
    void* const record = free_ ? std::exchange(free_, free_->next) : cut();
    ++out_;
    return record;
}

void RecordPool::give(void* record) noexcept
{
    if constexpr (!cutsSlabs) {
        ::operator delete(record, lineAlignment);
        return;
    }
    const std::lock_guard hold(lock_);
    free_ = new (record) Free{free_};
    if (--out_ == 0)
        dropSlabs();
}

std::size_t RecordPool::slabBytes()
{
    const std::lock_guard hold(lock_);
    return slabBytes_;
}

void* RecordPool::cut()
{
    if (static_cast<std::size_t>(end_ - next_) < recordBytes_)
        addSlab();
    return std::exchange(next_, next_ + recordBytes_);
}

void RecordPool::addSlab()
{
    slabs_.reserve(slabs_.size() + 1);
    const bool wantsPages = slabBytes_ >= plainBytesMax;
    const std::size_t bytes = wantsPages ? pageSlabBytes : std::max(slabBytes_, firstSlabBytes);
    Slab slab{nullptr, nullptr};
    if (wantsPages) {
        // Kept beside the slab: memory goes back to where it came from.
        slab.pages = OS()->getPageMemory();
        slab.memory = slab.pages->allocate(nullptr, bytes, os::pagesReserveCommit, os::pagesReadWrite);
    }
    if (!slab.memory)
        slab = {::operator new(bytes, lineAlignment), nullptr};
    slabs_.push_back(slab);
    slabBytes_ += bytes;
    next_ = static_cast<std::byte*>(slab.memory);
    end_ = next_ + bytes;
}

void RecordPool::dropSlabs() noexcept
{
    for (const Slab& slab : slabs_) {
        if (slab.pages)
            slab.pages->release(slab.memory, os::pagesRelease);
        else
            ::operator delete(slab.memory, lineAlignment);
    }
    slabs_ = {};
    slabBytes_ = 0;
    free_ = nullptr;
    next_ = nullptr;
    end_ = nullptr;
}
