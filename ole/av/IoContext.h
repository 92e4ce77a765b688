#pragma once

#include <cstdint>
#include <memory>

extern "C" {
#include <libavformat/avio.h>
#include <libavformat/version.h>
}

// IoContext: an AVIOContext with its buffer.
//
// Ownership:  frees both. The buffer is the context's of that moment: libavformat may have replaced it.
struct FreeIoContext
{
    void operator()(AVIOContext* context) const;
};
using IoContext = std::unique_ptr<AVIOContext, FreeIoContext>;

// Newer versions promise not to change what they hand over to be written.
#if LIBAVFORMAT_VERSION_MAJOR >= 61
using WrittenBytes = const std::uint8_t;
#else
using WrittenBytes = std::uint8_t;
#endif

using ReadPacket = int (*)(void* opaque, std::uint8_t* into, int bytes);
using WritePacket = int (*)(void* opaque, WrittenBytes* data, int bytes);
using SeekTo = std::int64_t (*)(void* opaque, std::int64_t offset, int whence);

// A context that is read from or written to, whichever function is not null. Null without memory, and for a
// buffer of less than a byte.
[[nodiscard]] IoContext makeIoContext(int bufferBytes, void* opaque, ReadPacket read, WritePacket write,
                                      SeekTo seek);

// Where a seek leads, in bytes from the start; negative, an AVERROR code, for a place before it and for a
// whence that nobody knows.
[[nodiscard]] std::int64_t seekTarget(std::int64_t offset, int whence, std::uint64_t position,
                                      std::uint64_t size);
