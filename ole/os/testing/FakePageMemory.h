#pragma once

#include "os/iPageMemory.h"

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

struct FakeCore;

namespace fake {

struct PageRecord
{
    void* wish = nullptr;  // the address asked for
    std::size_t size = 0;
    unsigned type = 0;
    unsigned protection = 0;
    void* memory = nullptr;  // null: it failed
    bool released = false;
    unsigned freeType = 0;
};

}  // namespace fake

// FakePageMemory: page-aligned memory of exactly the size asked for, zeroed; the byte behind it is a
// sanitizer's red zone. Freed at release, so that a late transfer into it is caught.
//
// Threads: any.
class FakePageMemory : public iPageMemory
{
public:
    static constexpr std::size_t pageSize = 4096;

    explicit FakePageMemory(std::shared_ptr<FakeCore> core);
    // Frees what was never released (the records show it).
    ~FakePageMemory() override;

    void* allocate(void* address, std::size_t size, unsigned type, unsigned protection) override;
    bool release(void* memory, unsigned freeType) override;

    // Every allocation ever asked for, in order.
    [[nodiscard]] std::vector<fake::PageRecord> records() const;

private:
    std::shared_ptr<FakeCore> core_;
    mutable std::mutex mutex_;
    std::vector<fake::PageRecord> records_;
    std::map<void*, std::size_t> live_;  // memory to index in records_
};
