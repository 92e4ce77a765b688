#pragma once

#include "os/FolderListing.h"
#include "os/linux/FileSizes.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string_view>
#include <vector>

namespace os {

// NameOrder: the names of batches, sorted by their bytes.
//
// Threads:    another thread may fill in the sizes of the names meanwhile, until deliver.
// Ownership:  borrows the batches, which outlive this object.
class NameOrder
{
public:
    explicit NameOrder(const std::deque<NameBatch>& batches);

    // Adds the names that turned out to be files. REQUIRES: the sizes are complete.
    void deliver(FolderListing& files) const;

private:
    // The number decides, and the name itself only where numbers are equal.
    struct Key
    {
        std::uint64_t number;
        const char* text;
        const NameBatch::Name* name;

        [[nodiscard]] std::string_view view() const { return {text, name->length}; }
    };

    void collect(const std::deque<NameBatch>& batches);
    [[nodiscard]] std::size_t sharedLength() const;

    std::vector<Key> keys_;
    std::size_t textBytes_ = 0;
};

}  // namespace os
