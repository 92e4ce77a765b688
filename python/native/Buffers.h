#pragma once

#include "media/MediaReader.h"

#include <cstddef>
#include <pybind11/pybind11.h>
#include <span>

// Buffer: the memory of a bytes-like object, which stays where it is as long as this lives.
//
// Threads:    made with the interpreter's lock; the memory may be used without it. The end enters the
//             interpreter by itself, on any thread, and leaves the object alone when there is none any more.
class Buffer
{
public:
    enum class For { reading, writing };

    // Throws what Python raises for an object that has no contiguous memory, or none that may be written.
    Buffer(const pybind11::object& object, For use);
    ~Buffer();
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    [[nodiscard]] std::span<std::byte> bytes() const;

private:
    Py_buffer view_{};
};

// Data: bytes that were read, as an object with the buffer protocol. Nothing is copied.
struct Data
{
    MediaData bytes;

    [[nodiscard]] pybind11::buffer_info buffer() const;
};
