#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// Bytes that tell which file they belong to and where in it they stand: the file's number in the first eight,
// then numbers that do not repeat. Lost, moved, foreign and empty bytes all show.

// Fills into with the bytes of file number from position on.
void fillPattern(std::uint64_t number, std::uint64_t position, std::span<std::byte> into);

// How many of bytes, from their start, are those of file number from position on.
[[nodiscard]] std::size_t matchingBytes(std::uint64_t number, std::uint64_t position,
                                        std::span<const std::byte> bytes);
