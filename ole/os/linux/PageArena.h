#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

// PageArena: blocks of whole pages, cut from chunks of huge pages in one range of addresses.
//
// Inside a huge page memory is contiguous: a device gets one piece instead of hundreds, and the kernel pins
// and maps it at a fraction of the cost. Where the system grants no huge pages the chunks consist of plain
// ones. A chunk in which no block lies any more goes back to the system.
// Threads:    none, the owner locks; but chunkOf and chunkStart from any, and decommit without the lock.
// Units:      bytes.
class PageArena
{
public:
    static constexpr std::size_t hugePageBytes = std::size_t{2} << 20;
    static constexpr std::size_t chunkBytes = std::size_t{8} << 20;
    static constexpr unsigned chunksMax = 64;
    // Larger blocks are not worth a chunk: huge pages of their own serve them as well.
    static constexpr std::size_t blockBytesMax = std::size_t{6} << 20;
    static constexpr unsigned noChunk = chunksMax;

    PageArena();
    ~PageArena();
    PageArena(const PageArena&) = delete;
    PageArena& operator=(const PageArena&) = delete;

    // A block of size bytes, whole pages, that holds zeroes or bytes of this process. Null when it is too
    // large, all chunks are in use, or there is no memory.
    void* take(std::size_t size);
    // Takes back a block that take handed out: the chunk that is empty now, or noChunk. An empty chunk is
    // cut no more; the owner calls decommit and then reuse.
    [[nodiscard]] unsigned give(void* block, std::size_t size);

    // Gives an empty chunk's memory back to the system, which takes it a while.
    void decommit(unsigned chunk);
    // From here on blocks may be cut from the chunk again.
    void reuse(unsigned chunk);

    // The chunk in which the whole of [memory, memory + size) lies, or noChunk.
    [[nodiscard]] unsigned chunkOf(const void* memory, std::size_t size) const;
    [[nodiscard]] void* chunkStart(unsigned chunk) const { return base_ + chunk * chunkBytes; }
    // Chunks that have memory.
    [[nodiscard]] unsigned chunksInUse() const;

private:
    struct Chunk
    {
        enum class State : std::uint8_t { empty, cut, leaving };
        State state = State::empty;
        std::map<std::size_t, std::size_t> free;  // length by offset; neighbours are one
    };

    bool commit(unsigned chunk);
    void* cut(unsigned chunk, std::size_t size);

    std::byte* range_ = nullptr;  // as mapped; null without one
    std::byte* base_ = nullptr;   // its first huge page
    std::vector<Chunk> chunks_;
};
