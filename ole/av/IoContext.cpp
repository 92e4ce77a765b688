#include "av/IoContext.h"

#include <cerrno>
#include <cstdio>
#include <limits>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

void FreeIoContext::operator()(AVIOContext* context) const
{
    av_freep(&context->buffer);
    avio_context_free(&context);
}

IoContext makeIoContext(int bufferBytes, void* opaque, ReadPacket read, WritePacket write, SeekTo seek)
{
    if (bufferBytes <= 0)
        return {};
    auto* buffer = static_cast<unsigned char*>(av_malloc(static_cast<std::size_t>(bufferBytes)));
    if (!buffer)
        return {};
    IoContext context(
        avio_alloc_context(buffer, bufferBytes, write != nullptr ? 1 : 0, opaque, read, write, seek));
    if (!context)
        av_free(buffer);
    return context;
}

std::int64_t seekTarget(std::int64_t offset, int whence, std::uint64_t position, std::uint64_t size)
{
    std::int64_t base = 0;
    switch (whence & ~AVSEEK_FORCE) {
    case SEEK_SET:
        break;
    case SEEK_CUR:
        base = static_cast<std::int64_t>(position);
        break;
    case SEEK_END:
        base = static_cast<std::int64_t>(size);
        break;
    default:
        return AVERROR(EINVAL);
    }
    const bool isTooFar = offset > 0 && base > std::numeric_limits<std::int64_t>::max() - offset;
    return isTooFar || base + offset < 0 ? AVERROR(EINVAL) : base + offset;
}
