#pragma once

#include "Engine.h"
#include "media/MediaWriter.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <pybind11/pybind11.h>

// Recorder: a MediaWriter as Python has it.
//
// Threads:    any; calls wait for each other.
// Locks:      every method is called with the interpreter's lock and waits without it.
// Errors:     the first failure is raised by the call that meets it and by every write and flush after it.
class Recorder
{
public:
    // Throws when the recording could not be begun.
    static std::unique_ptr<Recorder> ofClip(const pybind11::str& cookie, const pybind11::str& location,
                                            const pybind11::str& extension,
                                            const pybind11::object& proxyHeight, unsigned proxyChannels,
                                            const pybind11::dict& options);
    static std::unique_ptr<Recorder> ofFile(const pybind11::str& path, const pybind11::dict& options);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    [[nodiscard]] pybind11::str path() const;
    [[nodiscard]] pybind11::str partialPath() const;
    [[nodiscard]] bool isOpen() const;

    void write(const pybind11::object& data);
    void flush();
    // What became of it, as a dict. The same again after the first call; throws "notOpen" after leave, and
    // after abandon.
    [[nodiscard]] pybind11::dict finish();
    void abandon();
    // Ends it unfinished: what was written stays for recovery.
    void leave();
    [[nodiscard]] pybind11::dict counters() const;
    // Free bytes at the moment when the disk last came to have little, once; then None.
    [[nodiscard]] pybind11::object takeSpaceLow();

private:
    struct Open
    {
        engine::Use use;
        std::optional<MediaWriter> writer;
    };

    Recorder() = default;
    [[nodiscard]] MediaWriterOptions optionsOf(const pybind11::dict& given);
    // REQUIRES: gil::Outside.
    template <class Make>
    void begin(Make make);
    void end();
    [[nodiscard]] MediaWriter& writer() const;

    static constexpr std::uint64_t spaceIsFine = ~std::uint64_t{0};

    mutable std::mutex guard_;
    std::unique_ptr<Open> open_;              // null when it has ended; under guard_
    std::optional<MediaRecording> recorded_;  // under guard_
    MediaWriter::Counters counters_;          // when it ended; under guard_
    std::atomic<std::uint64_t> spaceLow_{spaceIsFine};
    LightweightString<wchar_t> path_;
    LightweightString<wchar_t> partialPath_;
};
