#pragma once

#include "Work.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// Descriptor: an open file; closes itself.
class Descriptor
{
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&&) = delete;
    [[nodiscard]] int get() const { return fd_; }
    // For those who close it themselves.
    int release();

private:
    int fd_;
};

// Opens a test file for reading in the way that mode asks for; throws what errno says.
[[nodiscard]] Descriptor openForReading(const std::string& path, Mode mode);
[[nodiscard]] Descriptor openForWriting(const std::string& path, bool unbuffered);
[[nodiscard]] std::uint64_t sizeOf(const std::string& path);

// Brings the page cache into the state that work.mode names, for every file of work.
void prepareCache(const Work& work);

// Makes a file whose sectors (512 bytes) each begin with their own position.
void makeTestFile(const std::string& path, std::uint64_t bytes);
// Fills one piece of such a file.
void stamp(unsigned char* data, std::size_t bytes, std::uint64_t position);

// Throws a std::system_error that names what was done, when failed.
void require(bool succeeded, const std::string& what);

// Memory for unbuffered transfers: aligned to a page, or on huge pages where the kernel gives any.
class Buffer
{
public:
    explicit Buffer(std::size_t bytes, bool huge = false);
    ~Buffer();
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    [[nodiscard]] unsigned char* data() const { return data_; }
    [[nodiscard]] std::size_t size() const { return bytes_; }

private:
    unsigned char* data_;
    std::size_t bytes_;
};
