#include "os/linux/NameOrder.h"

#include <algorithm>

namespace os {

namespace {

// The first bytes as a number that is ordered as they are; a shorter text counts as filled with zeros.
std::uint64_t numberOf(std::string_view text)
{
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < sizeof number; ++i)
        number = number << 8 | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0u);
    return number;
}

}  // namespace

NameOrder::NameOrder(const std::deque<NameBatch>& batches)
{
    collect(batches);
    const std::size_t shared = sharedLength();
    for (Key& key : keys_)
        key.number = numberOf(key.view().substr(shared));
    std::sort(keys_.begin(), keys_.end(), [](const Key& a, const Key& b) {
        return a.number != b.number ? a.number < b.number : a.view() < b.view();
    });
}

void NameOrder::collect(const std::deque<NameBatch>& batches)
{
    std::size_t names = 0;
    for (const NameBatch& batch : batches) {
        names += batch.names.size();
        textBytes_ += batch.text.size();
    }
    keys_.reserve(names);
    for (const NameBatch& batch : batches)
        for (const NameBatch::Name& name : batch.names)
            keys_.push_back({0, batch.text.data() + name.begin, &name});
}

// How many bytes all names begin with alike. Names of media often do, and are told apart by what follows.
std::size_t NameOrder::sharedLength() const
{
    if (keys_.empty())
        return 0;
    std::string_view shared = keys_.front().view();
    for (const Key& key : keys_) {
        const std::string_view name = key.view();
        const std::size_t length = std::min(shared.size(), name.size());
        const auto end = shared.begin() + static_cast<std::ptrdiff_t>(length);
        const auto differing = std::mismatch(shared.begin(), end, name.begin()).first;
        shared = shared.substr(0, static_cast<std::size_t>(differing - shared.begin()));
    }
    return shared.size();
}

void NameOrder::deliver(FolderListing& files) const
{
    // The names lie in the order of the disk, so each is a walk to slow memory; ask for it ahead.
    constexpr std::size_t ahead = 16;
    files.reserve(keys_.size(), textBytes_);
    for (std::size_t i = 0; i < keys_.size(); ++i) {
        const Key& later = keys_[std::min(i + ahead, keys_.size() - 1)];
        __builtin_prefetch(later.text);
        __builtin_prefetch(later.name);
        const Key& key = keys_[i];
        if (key.name->size != NameBatch::noFile)
            files.addUTF8(key.view(), key.name->size);
    }
}

}  // namespace os
