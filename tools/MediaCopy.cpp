#include "MediaCopy.h"

#include "Hash.h"

#include <vector>

namespace {

constexpr std::size_t pieceBytes = std::size_t{1} << 20;
constexpr std::uint64_t readAheadBytes = std::uint64_t{8} << 20;

// Hands all of the file to sink, piece by piece; a sink that answers false stops it.
template <class Sink>
MediaError readThrough(MediaReader& reader, Progress& progress, const Sink& sink)
{
    reader.setReadAhead(readAheadBytes);
    std::vector<std::byte> piece(pieceBytes);
    MediaError error;
    // Up to where the reader says that the file ends: its size is 0 also when the file cannot be asked for
    // it.
    for (std::uint64_t at = 0; !error;) {
        const std::size_t bytes = reader.read(at, piece, &error);
        if (error || !sink(std::span(piece).first(bytes)))
            break;
        at += bytes;
        progress.advance(bytes);
    }
    return error.code == MediaErrorCode::beyondEnd ? MediaError() : error;
}

}  // namespace

MediaHash hashOfMedia(const LightweightString<wchar_t>& path, Progress& progress)
{
    MediaHash result;
    MediaReader reader(path);
    if (!reader.isOpen()) {
        result.error = reader.openError();
        return result;
    }
    Hash hash;
    result.error = readThrough(reader, progress, [&](std::span<const std::byte> bytes) {
        hash.add(bytes.data(), bytes.size());
        result.bytes += bytes.size();
        return true;
    });
    if (!result.error)
        result.xxh128 = hash.text();
    return result;
}

MediaRecording copyMedia(MediaReader& reader, MediaWriter& writer, Progress& progress)
{
    const MediaError readError =
        readThrough(reader, progress, [&](std::span<const std::byte> bytes) { return writer.write(bytes); });
    if (!readError && !writer.error())
        return writer.finish();
    MediaRecording failed;
    failed.error = readError ? readError : writer.error();
    failed.path = writer.path();
    // Half a copy is of no use to anybody: the original is still there.
    writer.abandon();
    return failed;
}
