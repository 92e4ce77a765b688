#pragma once

#include "Engine.h"
#include "media/MediaReader.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <pybind11/pybind11.h>

// Reader: a MediaReader as Python has it.
//
// Threads:    any, at once, also close beside reads: those that are under way end first.
// Callbacks:  callback(data, bytes, error), once for every read, on the reader's thread of callbacks. data is
//             None for a read into a buffer and after an error; error is None or the exception object.
// Locks:      every method is called with the interpreter's lock and waits without it.
class Reader
{
public:
    // Both throw when it cannot be opened.
    static std::unique_ptr<Reader> ofFile(const pybind11::str& path);
    static std::unique_ptr<Reader> ofClip(const pybind11::str& cookie, const pybind11::str& level,
                                          unsigned height);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    [[nodiscard]] pybind11::str path() const;
    [[nodiscard]] pybind11::str target() const;
    [[nodiscard]] bool isOpen() const;
    [[nodiscard]] std::uint64_t size() const;

    // Bytes that were read; 0 at the end of the file and behind it.
    std::size_t readInto(std::uint64_t offset, const pybind11::object& into);
    std::uint64_t readAsync(std::uint64_t offset, std::uint64_t bytes, const pybind11::function& callback);
    std::uint64_t readIntoAsync(std::uint64_t offset, const pybind11::object& into,
                                const pybind11::function& callback);
    bool cancel(std::uint64_t ticket);
    void setReadAhead(std::uint64_t bytes);
    void setStallLimit(unsigned limitMs);
    [[nodiscard]] pybind11::dict counters() const;
    // Waits for reads and callbacks, unless a callback calls it.
    void close();

private:
    // The engine must run for as long as there is a reader.
    struct Open
    {
        template <class... Arguments>
        explicit Open(const Arguments&... arguments) : reader(arguments...)
        {}

        engine::Use use;
        MediaReader reader;
    };
    using Shared = std::shared_ptr<Open>;

    explicit Reader(Shared open);
    // Throws when it is closed.
    [[nodiscard]] Shared open() const;

    mutable std::mutex guard_;
    Shared open_;  // null when closed; under guard_
    const LightweightString<wchar_t> path_;
    const LightweightString<wchar_t> target_;
};
