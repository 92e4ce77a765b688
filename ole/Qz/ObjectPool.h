#pragma once

#include "Qz/Export.h"

#include <cstddef>

namespace Qz {

// ObjectPool: blocks of one size, recycled through a lock-free list.
//
// Threads:    take and give from any thread, without a lock in the common case. The list's head carries
//             a tag that changes with every take, so a block that went and came back is not mistaken
//             for one that never left.
// Lifetime:   pools are found or made by name and never destroyed; blocks stay with their pool.
class QZ_API ObjectPool
{
public:
    // The pool of that name and block size; made on first use.
    static ObjectPool& named(const char* name, std::size_t blockSize);

    // A block, aligned for any type; null when there is no memory.
    [[nodiscard]] void* take();
    // Gives back a block that this pool handed out; null is ignored.
    void give(void* block);

    // Bytes of a block, as asked for.
    [[nodiscard]] std::size_t blockSize() const;
    // Blocks handed out and not given back; for tests.
    [[nodiscard]] std::size_t blocksInUse() const;

    ObjectPool(const ObjectPool&) = delete;
    ObjectPool& operator=(const ObjectPool&) = delete;

private:
    explicit ObjectPool(std::size_t blockSize);
    struct State;
    State* state_;
};

}  // namespace Qz
