#pragma once

#include "av/AvOutput.h"
#include "av/IoContext.h"

#include <memory>
#include <span>

// AvOutput::Sink: what libavformat's calls for a file come to.
class AvOutput::Sink
{
public:
    Sink(std::unique_ptr<MediaWriter> writer, int bufferBytes);
    ~Sink();
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    [[nodiscard]] AVIOContext* context() const { return context_.get(); }
    [[nodiscard]] MediaError error() const;
    [[nodiscard]] const MediaWriter& writer() const { return *writer_; }
    MediaRecording finish();
    void abandon();

private:
    static int writePacket(void* sink, WrittenBytes* data, int bytes);
    static std::int64_t seekTo(void* sink, std::int64_t offset, int whence);

    bool write(std::span<const std::byte> data);
    bool fillUpTo(std::uint64_t position);
    bool append(std::span<const std::byte> data);
    void flushContext();

    const std::unique_ptr<MediaWriter> writer_;
    MediaError bufferError_;
    std::uint64_t position_ = 0;
    std::uint64_t size_ = 0;  // bytes that were written
    IoContext context_;
};
