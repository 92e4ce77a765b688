#include "av/OutputSink.h"

#include "Qz/Utf8.h"
#include "av/AvError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <utility>

extern "C" {
#include <libavutil/error.h>
}

AvOutput::Sink::Sink(std::unique_ptr<MediaWriter> writer, int bufferBytes) : writer_(std::move(writer))
{
    if (!writer_->isOpen())
        return;
    context_ = makeIoContext(bufferBytes, this, nullptr, &Sink::writePacket, &Sink::seekTo);
    if (context_)
        return;
    bufferError_ = {bufferBytes > 0 ? MediaErrorCode::noMemory : MediaErrorCode::invalidArgument, 0,
                    toUTF8(writer_->path()).str() + ": no buffer to write with"};
    writer_->abandon();
}

AvOutput::Sink::~Sink() { flushContext(); }

MediaError AvOutput::Sink::error() const { return bufferError_ ? bufferError_ : writer_->error(); }

MediaRecording AvOutput::Sink::finish()
{
    flushContext();
    MediaRecording recorded = writer_->finish();
    if (bufferError_)
        recorded.error = bufferError_;
    return recorded;
}

void AvOutput::Sink::abandon() { writer_->abandon(); }

// After an error of the writer the context drops what it holds.
void AvOutput::Sink::flushContext()
{
    if (context_)
        avio_flush(context_.get());
}

// libavformat is C: nothing may be thrown through it.
int AvOutput::Sink::writePacket(void* sink, WrittenBytes* data, int bytes)
{
    auto& self = *static_cast<Sink*>(sink);
    const std::span<const std::uint8_t> written(data, static_cast<std::size_t>(std::max(bytes, 0)));
    try {
        return self.write(std::as_bytes(written)) ? bytes : avErrorOf(self.writer_->error().code);
    } catch (const std::bad_alloc&) {
        return AVERROR(ENOMEM);  // for the sentence about an error
    }
}

std::int64_t AvOutput::Sink::seekTo(void* sink, std::int64_t offset, int whence)
{
    auto& self = *static_cast<Sink*>(sink);
    if ((whence & ~AVSEEK_FORCE) == AVSEEK_SIZE)
        return static_cast<std::int64_t>(self.size_);
    const std::int64_t target = seekTarget(offset, whence, self.position_, self.size_);
    if (target >= 0)
        self.position_ = static_cast<std::uint64_t>(target);
    return target;
}

bool AvOutput::Sink::write(std::span<const std::byte> data)
{
    if (!fillUpTo(position_))
        return false;
    const auto inside = static_cast<std::size_t>(std::min<std::uint64_t>(data.size(), size_ - position_));
    if (inside != 0 && !writer_->rewrite(position_, data.first(inside)))
        return false;
    if (inside != data.size() && !append(data.subspan(inside)))
        return false;
    position_ += data.size();
    return true;
}

bool AvOutput::Sink::fillUpTo(std::uint64_t position)
{
    static constexpr std::array<std::byte, 65'536> zeros{};
    while (size_ < position) {
        const std::uint64_t missing = std::min<std::uint64_t>(position - size_, zeros.size());
        if (!append(std::span(zeros).first(static_cast<std::size_t>(missing))))
            return false;
    }
    return true;
}

bool AvOutput::Sink::append(std::span<const std::byte> data)
{
    if (!writer_->write(data))
        return false;
    size_ += data.size();
    return true;
}
