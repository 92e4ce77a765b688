#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define FSYS_RECORDS_ARE_WATCHED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FSYS_RECORDS_ARE_WATCHED 1
#endif
#endif

class iPageMemory;

// RecordPool: memory for records of one size that exist by the million.
//
// Records are cut from slabs one behind another, so those that a scan makes in order lie in order. The first
// slabs are plain memory and double in size; from there on slabs come from the platform's pages, which are
// huge where the system has any: a look-up among a million records then waits for the record alone and not
// for the tables that tell where its page is.
//
// Threads:    any.
// Ownership:  owns the slabs. They go when the last record has come back, all at once; until then the room
//             of records that came back is for later ones.
// Units:      bytes.
// Errors:     take throws std::bad_alloc.
class RecordPool
{
public:
    static constexpr std::size_t alignment = 32;  // of records; 64 where their size is a multiple of it
    // With the address sanitizer each record is an allocation of its own, so that a late use of one is seen.
#ifdef FSYS_RECORDS_ARE_WATCHED
    static constexpr bool cutsSlabs = false;
#else
    static constexpr bool cutsSlabs = true;
#endif

    explicit RecordPool(std::size_t recordBytes);
    // REQUIRES: no record is out.
    ~RecordPool();
    RecordPool(const RecordPool&) = delete;
    RecordPool& operator=(const RecordPool&) = delete;

    [[nodiscard]] void* take();
    void give(void* record) noexcept;

    // Of all slabs.
    [[nodiscard]] std::size_t slabBytes();

private:
    struct Free
    {
        Free* next;
    };
    struct Slab
    {
        void* memory;
        iPageMemory* pages;  // null: plain memory
    };

    [[nodiscard]] void* cut();
    void addSlab();
    void dropSlabs() noexcept;

    const std::size_t recordBytes_;
    std::mutex lock_;
    // With lock_ held:
    std::vector<Slab> slabs_;
    std::size_t slabBytes_ = 0;
    Free* free_ = nullptr;
    std::byte* next_ = nullptr;  // of the newest slab
    std::byte* end_ = nullptr;
    std::size_t out_ = 0;
};
