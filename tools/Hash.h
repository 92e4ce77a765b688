#pragma once

#include <memory>
#include <string>

struct XXH3_state_s;

// Hash: XXH3 with 128 bits, as `xxhsum -H2` prints it.
class Hash
{
public:
    Hash();
    ~Hash();
    Hash(const Hash&) = delete;
    Hash& operator=(const Hash&) = delete;

    void add(const void* data, std::size_t bytes);
    // 32 hexadecimal digits of all that was added.
    [[nodiscard]] std::string text() const;

private:
    XXH3_state_s* state_;
};
