#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "av/Export.h"
#include "fsys/MaterialFilename.h"
#include "media/MediaWriter.h"

#include <memory>

struct AVIOContext;  // of libavformat

// AvOutput: a media file as libavformat writes it: an AVIOContext over a MediaWriter.
//
//   AvOutput output(clip, drive->getFsysLocation(clip, L"mov"));
//   AVFormatContext* format = nullptr;
//   avformat_alloc_output_context2(&format, nullptr, "mov", nullptr);
//   format->pb = output.context();
//   ... avformat_write_header, av_interleaved_write_frame, av_write_trailer ...
//   avformat_free_context(format);
//   const MediaRecording recorded = output.finish();    // only when the trailer was written
//
// Names:      as MediaWriter: the file has its final name after finish, and ".partial" behind it until then.
// Seeking:    muxers may go back and change what they wrote, as those of MOV, WAV and Matroska do at the end;
//             what has left memory is changed on the disk (MediaWriter::rewrite). Skipped places become
//             zeros. AVSEEK_SIZE gives the bytes so far. Clear context()->seekable before the header is
//             written for muxers that can do without.
// Failures:   the first one is sticky: libavformat's calls fail with its code (AvError.h), error has the
//             sentence. A full disk then ends with a named file of what was written, as MediaWriter
//             says. A MOV without its table cannot be played: record fragments (movflags
//             frag_keyframe+empty_moov) where that matters.
//             A muxer that fails by itself, without a failure here, has not written the file that it
//             should: abandon it.
// Threads:    one at a time, as libavformat.
// Ownership:  the context is this object's: do not close or free it. Without finish or abandon the
//             unfinished file stays, with all that the muxer has written.
class AV_API AvOutput
{
public:
    // Of the context, in bytes, unless told otherwise. Writes reach the writer in pieces of about this size,
    // and a recording that fails is cut between two of them.
    static constexpr int bufferBytesDefault = 64 << 10;

    // As the constructors of MediaWriter.
    explicit AvOutput(const LightweightString<wchar_t>& path, MediaWriterOptions options = {},
                      int bufferBytes = bufferBytesDefault);
    AvOutput(const Cookie& cookie, const MaterialFilename& name, MediaWriterOptions options = {},
             int bufferBytes = bufferBytesDefault);
    ~AvOutput();
    AvOutput(const AvOutput&) = delete;
    AvOutput& operator=(const AvOutput&) = delete;

    // False when nothing can be written: error tells why.
    [[nodiscard]] bool isOpen() const;
    // The first failure.
    [[nodiscard]] MediaError error() const;
    // Null when it is not open.
    [[nodiscard]] AVIOContext* context() const;
    // For its names and counters.
    [[nodiscard]] const MediaWriter& writer() const;

    // Writes what the context still holds and ends the recording, as MediaWriter::finish.
    MediaRecording finish();
    // Ends the recording and removes the file.
    void abandon();

private:
    class AV_LOCAL Sink;

    std::unique_ptr<Sink> sink_;
};
