#include "os/linux/PageArena.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <sys/mman.h>

namespace {

constexpr std::size_t arenaBytes = PageArena::chunkBytes * PageArena::chunksMax;
constexpr std::size_t rangeBytes = arenaBytes + PageArena::hugePageBytes;
// Addresses alone: no memory stands behind them and none is set aside.
constexpr int reserved = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;

}  // namespace

PageArena::PageArena()
{
    void* const range = mmap(nullptr, rangeBytes, PROT_NONE, reserved, -1, 0);
    if (range == MAP_FAILED)
        return;  // an arena without chunks; its owner has other ways
    range_ = static_cast<std::byte*>(range);
    const std::size_t beyond = reinterpret_cast<std::uintptr_t>(range) % hugePageBytes;
    base_ = range_ + (beyond == 0 ? 0 : hugePageBytes - beyond);
    chunks_.resize(chunksMax);
}

PageArena::~PageArena()
{
    if (range_)
        munmap(range_, rangeBytes);
}

void* PageArena::take(std::size_t size)
{
    if (size > blockBytesMax)
        return nullptr;
    unsigned fresh = noChunk;
    for (unsigned i = 0; i < chunks_.size(); ++i) {
        if (chunks_[i].state == Chunk::State::empty)
            fresh = std::min(fresh, i);
        if (chunks_[i].state != Chunk::State::cut)
            continue;
        if (void* const block = cut(i, size))
            return block;
    }
    return fresh != noChunk && commit(fresh) ? cut(fresh, size) : nullptr;
}

bool PageArena::commit(unsigned chunk)
{
    const int error = errno;
    void* const start = chunkStart(chunk);
    const bool done = mprotect(start, chunkBytes, PROT_READ | PROT_WRITE) == 0;
    if (done) {
        madvise(start, chunkBytes, MADV_HUGEPAGE);
        chunks_[chunk].free = {{0, chunkBytes}};
        chunks_[chunk].state = Chunk::State::cut;
    }
    errno = error;
    return done;
}

void* PageArena::cut(unsigned chunk, std::size_t size)
{
    auto& free = chunks_[chunk].free;
    const auto found =
        std::find_if(free.begin(), free.end(), [size](const auto& range) { return range.second >= size; });
    if (found == free.end())
        return nullptr;
    const auto [offset, length] = *found;
    free.erase(found);
    if (length > size)
        free.emplace(offset + size, length - size);
    return base_ + chunk * chunkBytes + offset;
}

unsigned PageArena::give(void* block, std::size_t size)
{
    const auto distance = static_cast<std::size_t>(static_cast<std::byte*>(block) - base_);
    const auto chunk = static_cast<unsigned>(distance / chunkBytes);
    auto& free = chunks_[chunk].free;
    auto range = free.emplace(distance % chunkBytes, size).first;
    if (const auto next = std::next(range);
        next != free.end() && range->first + range->second == next->first) {
        range->second += next->second;
        free.erase(next);
    }
    if (range != free.begin()) {
        const auto before = std::prev(range);
        if (before->first + before->second == range->first) {
            before->second += range->second;
            free.erase(range);
            range = before;
        }
    }
    if (range->second != chunkBytes)
        return noChunk;
    chunks_[chunk].state = Chunk::State::leaving;
    return chunk;
}

void PageArena::decommit(unsigned chunk)
{
    // A new mapping over the old one: the addresses stay ours throughout. Where there is none to be had the
    // memory stays as well, for the next block.
    static_cast<void>(mmap(chunkStart(chunk), chunkBytes, PROT_NONE, reserved | MAP_FIXED, -1, 0));
}

void PageArena::reuse(unsigned chunk)
{
    chunks_[chunk].free.clear();
    chunks_[chunk].state = Chunk::State::empty;
}

unsigned PageArena::chunkOf(const void* memory, std::size_t size) const
{
    const auto distance = reinterpret_cast<std::uintptr_t>(memory) - reinterpret_cast<std::uintptr_t>(base_);
    if (!base_ || distance >= arenaBytes || size > chunkBytes - distance % chunkBytes)
        return noChunk;
    return static_cast<unsigned>(distance / chunkBytes);
}

unsigned PageArena::chunksInUse() const
{
    return static_cast<unsigned>(std::count_if(chunks_.begin(), chunks_.end(), [](const Chunk& chunk) {
        return chunk.state != Chunk::State::empty;
    }));
}
