#include "media/ContentHash.h"

#include <array>
#include <cstdio>

#include <xxhash.h>

ContentHash::ContentHash() : state_(XXH3_createState()) { XXH3_128bits_reset(state_); }

ContentHash::~ContentHash() { XXH3_freeState(state_); }

void ContentHash::add(std::span<const std::byte> bytes)
{
    if (!bytes.empty())
        XXH3_128bits_update(state_, bytes.data(), bytes.size());
}

std::string ContentHash::text() const
{
    const XXH128_hash_t hash = XXH3_128bits_digest(state_);
    std::array<char, 33> text{};
    std::snprintf(text.data(), text.size(), "%016llx%016llx", static_cast<unsigned long long>(hash.high64),
                  static_cast<unsigned long long>(hash.low64));
    return text.data();
}
