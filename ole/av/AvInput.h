#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "av/Export.h"
#include "fsys/DecodeFormat.h"
#include "media/MediaError.h"

#include <cstdint>
#include <memory>
#include <string>

struct AVIOContext;  // of libavformat

// AvInputOptions: how libavformat reads a media file.
struct AvInputOptions
{
    // Of the context, in bytes: what small reads are served from. Larger reads go past it.
    int bufferBytes = 64 << 10;
    // MediaReader::setReadAhead. Demuxers read forwards most of the time, so it is on.
    std::uint64_t readAheadBytes = std::uint64_t{8} << 20;
    // For files that are still being written: a read at the end waits until there is more, as long as the
    // file has grown within so many milliseconds. 0 does not wait.
    unsigned growthWaitMs = 0;
};

// AvInput: a media file as libavformat reads it: an AVIOContext over a MediaReader.
//
//   AvInput input(clip, DecodeFormat(eHighRes));
//   if (!input.isOpen())
//       complain(input.error().text);
//   AVFormatContext* format = avformat_alloc_context();
//   format->pb = input.context();
//   if (avformat_open_input(&format, input.name().c_str(), nullptr, nullptr) == 0) { ... }
//   avformat_close_input(&format);                // before input goes; it leaves the context alone
//
// Seeking:    to any place, also behind the end, where reads answer the end of file. AVSEEK_SIZE gives the
//             file's size at that moment.
// The end:    reading there gives AVERROR_EOF. libavformat asks again with its next read, which may give no
//             bytes and no error when the file has grown meanwhile; the one after it reads on.
// Growing:    with growthWaitMs a read at the end waits. The wait ends with more bytes; with the end of
//             file once nothing has come for that long, which the file must outgrow before anybody waits
//             for it again; at once when a recording (".partial") has got its final name or is gone; and
//             with AVERROR_EXIT after stop. A recording that gets its name while it is read is read to its
//             end. Demuxers of files whose table is written last (MOV, MP4 that is not fragmented) cannot
//             open them before.
// Errors:     reads give the codes of AvError.h; error has the sentence.
// Threads:    one at a time, as libavformat; stop from any.
// Ownership:  the context is this object's: do not close or free it. The engine must run as long as
//             inputs are open.
class AV_API AvInput
{
public:
    // Opens a file by its operating-system path.
    explicit AvInput(const LightweightString<wchar_t>& path, const AvInputOptions& options = {});
    // Opens the file of a clip that suits format, as MediaReader does: full resolution, a proxy, the target
    // of a link.
    AvInput(const Cookie& cookie, const DecodeFormat& format, const AvInputOptions& options = {});
    ~AvInput();
    AvInput(const AvInput&) = delete;
    AvInput& operator=(const AvInput&) = delete;

    // False when there is nothing to read: error tells why.
    [[nodiscard]] bool isOpen() const;
    // Why it is not open, or the last error of a read; the end of file is none.
    [[nodiscard]] const MediaError& error() const;
    // Null when it is not open.
    [[nodiscard]] AVIOContext* context() const;
    // UTF-8 path of the file whose bytes are read: some demuxers are chosen by its extension.
    [[nodiscard]] const std::string& name() const;

    // Ends a wait for growth, and all that would follow.
    void stop();

private:
    class AV_LOCAL Source;

    std::unique_ptr<Source> source_;
};
