#pragma once

#include "Qz/Export.h"

#include <atomic>

namespace Qz {

// InternalRefCount: the reference count that lives inside a counted object.
//
// Threads:    counts change from any thread. The thread that drops the last reference sees every
//             write made by the threads that dropped theirs before it (release / acquire).
// Ownership:  counted objects are made with new and held by Qz::Ptr, or live by value in a record and
//             are never handed to a Ptr.
// Copies:     a copy is a new object that nobody refers to yet, so it starts at zero; assignment
//             changes the contents and leaves both counts alone.
class QZ_API InternalRefCount
{
public:
    InternalRefCount() noexcept = default;
    // An object that nobody refers to yet.
    InternalRefCount(const InternalRefCount&) noexcept : count_(0) {}
    // Leaves both counts alone.
    InternalRefCount& operator=(const InternalRefCount&) noexcept { return *this; }
    virtual ~InternalRefCount();

    // One more reference. REQUIRES: the caller has one, or the object is new.
    void addRef() const noexcept { count_.fetch_add(1, std::memory_order_relaxed); }

    // True when the caller dropped the last reference and must delete the object.
    [[nodiscard]] bool dropRef() const noexcept
    {
        return count_.fetch_sub(1, std::memory_order_acq_rel) == 1;
    }

    // For tests and diagnostics: the value may be old by the time it is looked at.
    [[nodiscard]] unsigned refCount() const noexcept { return count_.load(std::memory_order_relaxed); }

private:
    mutable std::atomic<unsigned> count_{0};
};

}  // namespace Qz
