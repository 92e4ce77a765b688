#include "Hash.h"

#include <array>
#include <cstdio>

#include <xxhash.h>

Hash::Hash() : state_(XXH3_createState()) { XXH3_128bits_reset(state_); }
Hash::~Hash() { XXH3_freeState(state_); }

void Hash::add(const void* data, std::size_t bytes) { XXH3_128bits_update(state_, data, bytes); }

std::string Hash::text() const
{
    const XXH128_hash_t value = XXH3_128bits_digest(state_);
    std::array<char, 33> digits{};
    std::snprintf(digits.data(), digits.size(), "%016llx%016llx",
                  static_cast<unsigned long long>(value.high64),
                  static_cast<unsigned long long>(value.low64));
    return digits.data();
}
