#include "av/InputSource.h"

#include "Qz/Utf8.h"
#include "av/AvError.h"
#include "media/MediaWriter.h"
#include "os/Clock.h"
#include "os/OS.h"

#include <algorithm>
#include <array>
#include <new>
#include <string_view>

extern "C" {
#include <libavutil/error.h>
}

namespace {

constexpr unsigned growthPollMs = 20;
constexpr std::size_t partialLength = std::wstring_view(partialEnding).size();

// What a reader says that opens its file again and finds none under the name.
bool hasLostFile(MediaErrorCode code)
{
    return code == MediaErrorCode::fileVanished || code == MediaErrorCode::notFound;
}

}  // namespace

AvInput::Source::Source(std::unique_ptr<MediaReader> reader, const AvInputOptions& options)
    : options_(options),
      reader_(std::move(reader)),
      // Stays set: what is stopped stays stopped.
      stopped_(OS()->getThreadServices()->createEvent(1, 0, "end of input"))
{
    if (!reader_->isOpen()) {
        error_ = reader_->openError();
        return;
    }
    prepare();
    context_ = makeIoContext(options.bufferBytes, this, &Source::readPacket, nullptr, &Source::seekTo);
    if (!context_)
        error_ = {options.bufferBytes > 0 ? MediaErrorCode::noMemory : MediaErrorCode::invalidArgument, 0,
                  name_ + ": no buffer to read with"};
}

void AvInput::Source::prepare()
{
    name_ = toUTF8(reader_->target()).str();
    reader_->setReadAhead(options_.readAheadBytes);
}

// libavformat is C: nothing may be thrown through it.
int AvInput::Source::readPacket(void* source, std::uint8_t* into, int bytes)
{
    try {
        const std::span<std::uint8_t> room(into, static_cast<std::size_t>(std::max(bytes, 0)));
        return static_cast<Source*>(source)->read(std::as_writable_bytes(room));
    } catch (const std::bad_alloc&) {
        return AVERROR(ENOMEM);
    }
}

std::int64_t AvInput::Source::seekTo(void* source, std::int64_t offset, int whence)
{
    try {
        return static_cast<Source*>(source)->seek(offset, whence);
    } catch (const std::bad_alloc&) {
        return AVERROR(ENOMEM);
    }
}

int AvInput::Source::read(std::span<std::byte> into)
{
    while (!stopped_->wait(0)) {
        MediaError error;
        if (const std::size_t got = reader_->read(position_, into, &error); got != 0) {
            position_ += got;
            return static_cast<int>(got);
        }
        if (hasLostFile(error.code) && followToFinalName())
            continue;
        if (error && error.code != MediaErrorCode::beyondEnd)
            return fail(error);
        if (!error || !awaitGrowth())
            return AVERROR_EOF;
    }
    return AVERROR_EXIT;
}

int AvInput::Source::fail(const MediaError& error)
{
    error_ = error;
    return avErrorOf(error.code);
}

std::int64_t AvInput::Source::seek(std::int64_t offset, int whence)
{
    if ((whence & ~AVSEEK_FORCE) == AVSEEK_SIZE)
        return size();
    const std::int64_t target = seekTarget(offset, whence, position_, reader_->size());
    if (target >= 0)
        position_ = static_cast<std::uint64_t>(target);
    return target;
}

std::int64_t AvInput::Source::size()
{
    if (const std::uint64_t bytes = reader_->size(); bytes != 0)
        return static_cast<std::int64_t>(bytes);
    // No bytes, or nobody to ask.
    MediaError error;
    std::array<std::byte, 1> first{};
    const std::size_t got = reader_->read(0, first, &error);
    if (got != 0)
        return static_cast<std::int64_t>(reader_->size());
    return error && error.code != MediaErrorCode::beyondEnd ? fail(error) : 0;
}

bool AvInput::Source::awaitGrowth()
{
    std::uint64_t size = reader_->size();
    if (options_.growthWaitMs == 0 || restingSize_ == size)
        return hasMore();
    double sinceMs = now();
    while (!hasMore() && !hasLostItsName() && now() - sinceMs < options_.growthWaitMs) {
        if (stopped_->wait(growthPollMs))
            return true;
        if (const std::uint64_t grown = reader_->size(); grown != size) {
            size = grown;
            sinceMs = now();
        }
    }
    // The last bytes of a recording may have come just before its name.
    if (hasMore())
        return true;
    restingSize_ = size;
    return false;
}

bool AvInput::Source::isRecording() const { return reader_->target().endsWith(partialEnding); }

bool AvInput::Source::hasLostItsName() const
{
    return isRecording() && !OS()->getFileManager()->fileExists(reader_->target());
}

// A recorder may change what it wrote before and then give the file its name, and a reader that has to open
// the file again finds it under that name only. Recorders replace nothing, so it is the same file.
bool AvInput::Source::followToFinalName()
{
    if (!isRecording())
        return false;
    const LightweightString<wchar_t> target = reader_->target();
    auto final = std::make_unique<MediaReader>(target.substr(0, target.size() - partialLength));
    if (!final->isOpen())
        return false;
    reader_ = std::move(final);
    prepare();
    return true;
}
