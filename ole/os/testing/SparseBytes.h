#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace fake {

// SparseBytes: contents of a file; parts never written cost nothing and read as zero. No locking.
class SparseBytes
{
public:
    [[nodiscard]] std::uint64_t size() const { return size_; }
    void extend(std::uint64_t size);
    void resize(std::uint64_t size);
    // Up to the first part that was never written, in steps of chunkBytes.
    [[nodiscard]] std::uint64_t written() const;
    // Bytes read: up to the end of the contents.
    std::size_t read(std::uint64_t position, void* buffer, std::size_t count) const;
    void write(std::uint64_t position, const void* buffer, std::size_t count);

private:
    static constexpr std::size_t chunkBytes = 65536;

    std::uint64_t size_ = 0;
    std::map<std::uint64_t, std::string> chunks_;  // by position / chunkBytes; short ones go on with zeros
};

}  // namespace fake
