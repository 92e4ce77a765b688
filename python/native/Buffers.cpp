#include "Buffers.h"

#include "Gil.h"

namespace py = pybind11;

Buffer::Buffer(const py::object& object, For use)
{
    const int flags = use == For::writing ? PyBUF_WRITABLE : PyBUF_SIMPLE;
    if (PyObject_GetBuffer(object.ptr(), &view_, flags) != 0)
        throw py::error_already_set();
}

Buffer::~Buffer()
{
    if (const gil::Inside inside; inside)
        PyBuffer_Release(&view_);
}

std::span<std::byte> Buffer::bytes() const
{
    return {static_cast<std::byte*>(view_.buf), static_cast<std::size_t>(view_.len)};
}

py::buffer_info Data::buffer() const
{
    // Nobody writes there: the buffer is offered read-only. Without bytes there is still a place.
    static std::byte none{};
    const std::span<const std::byte> all = bytes.bytes();
    void* const begin = all.empty() ? &none : const_cast<std::byte*>(all.data());
    return {begin, 1, "B", 1, {static_cast<py::ssize_t>(all.size())}, {1}, true};
}
