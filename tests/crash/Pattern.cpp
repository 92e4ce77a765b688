#include "Pattern.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

constexpr std::size_t wordBytes = sizeof(std::uint64_t);

std::uint64_t wordAt(std::uint64_t number, std::uint64_t index)
{
    if (index == 0)
        return number;
    std::uint64_t word = (number * 0x9e3779b97f4a7c15U) ^ (index * 0xbf58476d1ce4e5b9U);
    word = (word ^ (word >> 29)) * 0x94d049bb133111ebU;
    return word ^ (word >> 32);
}

}  // namespace

void fillPattern(std::uint64_t number, std::uint64_t position, std::span<std::byte> into)
{
    std::size_t done = 0;
    while (done < into.size()) {
        const std::uint64_t word = wordAt(number, (position + done) / wordBytes);
        const std::size_t skip = (position + done) % wordBytes;
        const std::size_t size = std::min(wordBytes - skip, into.size() - done);
        if (size == wordBytes)
            std::memcpy(into.data() + done, &word, wordBytes);
        else
            std::memcpy(into.data() + done, reinterpret_cast<const std::byte*>(&word) + skip, size);
        done += size;
    }
}

std::size_t matchingBytes(std::uint64_t number, std::uint64_t position, std::span<const std::byte> bytes)
{
    std::vector<std::byte> right(bytes.size());
    fillPattern(number, position, right);
    const auto ends = std::mismatch(bytes.begin(), bytes.end(), right.begin());
    return static_cast<std::size_t>(ends.first - bytes.begin());
}
