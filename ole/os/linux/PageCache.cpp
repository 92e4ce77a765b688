#include "os/linux/PageCache.h"

#include "os/LastError.h"
#include "os/linux/MemoryPoison.h"
#include "os/linux/ThreadName.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <limits>
#include <sys/mman.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace {

std::size_t pageSize()
{
    static const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

// Merged transfers come in every length. Blocks of a few sizes serve them all from the same few pages, which
// then stay in the processor's cache; an eighth more is the most that this costs. Large blocks are seldom
// and come in one size.
std::size_t blockSizeFor(std::size_t bytes)
{
    const std::size_t page = pageSize();
    const std::size_t step =
        bytes > PageArena::blockBytesMax ? page : std::max(page, std::bit_floor(bytes) / 8);
    return (bytes + step - 1) / step * step;
}

void* mapPages(void* wish, std::size_t size)
{
    void* const pages = mmap(wish, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return pages == MAP_FAILED ? nullptr : pages;
}

// Of huge pages as far as they reach: a little more is mapped, and what lies before the first of them and
// behind the block is cut off.
void* mapHugePages(std::size_t size)
{
    constexpr std::size_t huge = PageArena::hugePageBytes;
    auto* const start = static_cast<std::byte*>(mapPages(nullptr, size + huge));
    if (!start)
        return nullptr;
    const std::size_t before = (huge - reinterpret_cast<std::uintptr_t>(start) % huge) % huge;
    if (before != 0)
        munmap(start, before);
    if (before != huge)
        munmap(start + before + size, huge - before);
    madvise(start + before, size, MADV_HUGEPAGE);
    return start + before;
}

// A block of its own mapping; null, with the last error set, when there is no memory.
void* mapBlock(void* wish, std::size_t size)
{
    void* const block = wish || size < PageArena::hugePageBytes ? mapPages(wish, size) : mapHugePages(size);
    if (!block)
        setLastErrno(errno);
    return block;
}

}  // namespace

void* PageCache::take(void* wish, std::size_t size)
{
    const std::size_t page = pageSize();
    if (size == 0 || size > std::numeric_limits<std::size_t>::max() - page) {
        setLastErrno(EINVAL);
        return nullptr;
    }
    const std::size_t whole = (size + page - 1) / page * page;
    const std::size_t blockSize = blockSizeFor(whole);
    void* block = nullptr;
    {
        const std::lock_guard guard(mutex_);
        block = takeKept(blockSize);
        if (!block)
            block = takeNew(wish, blockSize);
    }
    if (!block)
        return nullptr;
    unpoisonMemory(block, whole);
    std::memset(static_cast<std::byte*>(block) + size, 0, whole - size);
    return block;
}

void* PageCache::takeKept(std::size_t size)
{
    const auto found = kept_.find(size);
    if (found == kept_.end() || found->second.empty())
        return nullptr;
    // The newest one is the likeliest to be in the processor's cache.
    void* block = found->second.back().block;
    found->second.pop_back();
    keptBytes_ -= size;
    blocks_.find(block)->second.live = true;
    ++live_;
    return block;
}

void* PageCache::takeNew(void* wish, std::size_t size)
{
    void* block = wish ? nullptr : arena_.take(size);
    if (!block)
        block = mapBlock(wish, size);
    if (!block)
        return nullptr;
    blocks_.insert({block, {size, true}});
    ++live_;
    return block;
}

void PageCache::forget(void* block, Gone& gone)
{
    const auto found = blocks_.find(block);
    const std::size_t size = found->second.size;
    blocks_.erase(found);
    if (arena_.chunkOf(block, size) == PageArena::noChunk)
        gone.mappings.push_back({block, size});
    else if (const unsigned chunk = arena_.give(block, size); chunk != PageArena::noChunk)
        gone.chunks.push_back(chunk);
}

void PageCache::giveBack(const Gone& gone)
{
    for (const Mapping& mapping : gone.mappings) {
        unpoisonMemory(mapping.block, mapping.size);
        munmap(mapping.block, mapping.size);
    }
    for (const unsigned chunk : gone.chunks)
        giveBackChunk(chunk);
}

void PageCache::giveBackChunk(unsigned chunk)
{
    {
        const std::lock_guard guard(usersMutex_);
        for (ChunkUser* const user : users_)
            user->forgetChunk(chunk);
    }
    unpoisonMemory(arena_.chunkStart(chunk), PageArena::chunkBytes);
    arena_.decommit(chunk);
    const std::lock_guard guard(mutex_);
    arena_.reuse(chunk);
}

void PageCache::addUser(ChunkUser* user)
{
    const std::lock_guard guard(usersMutex_);
    users_.push_back(user);
}

void PageCache::removeUser(ChunkUser* user)
{
    const std::lock_guard guard(usersMutex_);
    users_.erase(std::remove(users_.begin(), users_.end(), user), users_.end());
}

bool PageCache::give(void* block)
{
    Gone gone;
    {
        const std::lock_guard guard(mutex_);
        const auto found = blocks_.find(block);
        if (found == blocks_.end() || !found->second.live) {
            setLastErrno(EINVAL);
            return false;
        }
        --live_;
        found->second.live = false;
        keep(block, found->second.size, gone);
    }
    giveBack(gone);
    return true;
}

void PageCache::keep(void* block, std::size_t size, Gone& gone)
{
    if (size > keptBytesMax) {
        forget(block, gone);
        return;
    }
    while (keptBytes_ + size > keptBytesMax)
        dropOldest(gone);
    poisonMemory(block, size);
    kept_[size].push_back({block, Clock::now()});
    keptBytes_ += size;
    startTrimming();
}

void PageCache::dropOldest(Gone& gone)
{
    auto oldest = kept_.end();
    for (auto i = kept_.begin(); i != kept_.end(); ++i) {
        if (i->second.empty())
            continue;
        if (oldest == kept_.end() || i->second.front().since < oldest->second.front().since)
            oldest = i;
    }
    forget(oldest->second.front().block, gone);
    oldest->second.erase(oldest->second.begin());
    keptBytes_ -= oldest->first;
    if (oldest->second.empty())
        kept_.erase(oldest);
}

void PageCache::trim(Clock::time_point keptBefore)
{
    Gone gone;
    {
        const std::lock_guard guard(mutex_);
        for (auto i = kept_.begin(); i != kept_.end();) {
            std::vector<Kept>& kept = i->second;
            const auto newer = std::find_if(kept.begin(), kept.end(),
                                            [=](const Kept& one) { return one.since > keptBefore; });
            std::for_each(kept.begin(), newer, [&](const Kept& one) { forget(one.block, gone); });
            keptBytes_ -= i->first * static_cast<std::size_t>(newer - kept.begin());
            kept.erase(kept.begin(), newer);
            i = kept.empty() ? kept_.erase(i) : std::next(i);
        }
    }
    giveBack(gone);
}

void PageCache::startTrimming()
{
    if (trimming_)
        return;
    try {
        std::thread([this] { trimLoop(); }).detach();
        trimming_ = true;
    } catch (const std::system_error&) {
        // The bound holds without it; the next block that comes back tries again.
    }
}

void PageCache::trimLoop()
{
    nameThisThread("page trimmer");
    for (;;) {
        std::this_thread::sleep_for(restMax / 2);
        trim(Clock::now() - restMax);
        const std::lock_guard guard(mutex_);
        if (keptBytes_ == 0) {
            trimming_ = false;
            return;
        }
    }
}

std::size_t PageCache::liveBlocks()
{
    const std::lock_guard guard(mutex_);
    return live_;
}

unsigned PageCache::chunksInUse()
{
    const std::lock_guard guard(mutex_);
    return arena_.chunksInUse();
}

std::size_t PageCache::keptBytes()
{
    const std::lock_guard guard(mutex_);
    return keptBytes_;
}
