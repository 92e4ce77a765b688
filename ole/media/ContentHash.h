#pragma once

#include <cstddef>
#include <span>
#include <string>

struct XXH3_state_s;

// ContentHash: XXH3-128 of bytes that come piece by piece.
class ContentHash
{
public:
    ContentHash();
    ~ContentHash();
    ContentHash(const ContentHash&) = delete;
    ContentHash& operator=(const ContentHash&) = delete;

    void add(std::span<const std::byte> bytes);
    // Of all that was added: 32 hexadecimal digits, the most significant first.
    [[nodiscard]] std::string text() const;

private:
    XXH3_state_s* state_;
};
