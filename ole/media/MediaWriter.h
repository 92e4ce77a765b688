#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "fsys/MaterialFilename.h"
#include "media/Export.h"
#include "media/MediaError.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

// MediaWriterOptions: how a recording is made.
struct MediaWriterOptions
{
    // Bytes that wait to reach the disk, at most; a write that would exceed them waits. In whole blocks of
    // MediaWriter::blockBytes, at least 2 and at most 32.
    std::uint64_t bytesInFlight = std::uint64_t{8} << 20;
    // XXH3-128 of what is written, on the way. After a rewrite finish reads the file for it.
    bool hash = false;
    // onSpaceLow is called when the disk will have less free space than this, in bytes: once each time it
    // falls below.
    std::uint64_t lowSpaceBytes = std::uint64_t{1} << 30;
    // freeBytes is what will be free once the disk has taken all that was written, with the write that is
    // about to be: 0 when that does not fit. On the thread that calls the constructor or write, before the
    // bytes are taken. It may finish or abandon the recording, which refuses the write, and must not destroy
    // the writer.
    std::function<void(std::uint64_t freeBytes)> onSpaceLow = {};
    // A disk that takes nothing for so long makes the recording fail with givenUp; 0 waits for ever. This
    // bounds the waits for blocks that are under way, and on network and user-space file systems each of the
    // other steps: writing the rest of the last block at flush and finish, and blocks that the engine does
    // not take; flushing the device; cutting and naming the file. A stuck disk of this machine may hold
    // these for as long as it likes. Beginning takes as long as any question to a server, two seconds.
    unsigned stallLimitMs = 60'000;
};

// What became of a recording.
struct MediaRecording
{
    // True: the file has its final name and holds, in order, exactly the bytes of all writes, as they were
    // rewritten, safe against a loss of power.
    bool complete = false;
    // The file: under its final name when complete or cut off by a full disk, else the unfinished one. Empty
    // when there was nothing to keep, or somebody removed it (fileVanished).
    LightweightString<wchar_t> path;
    bool hasFinalName = false;  // false while the name ends with ".partial"
    // Bytes of the whole writes that the file holds. An unfinished file may have more behind them, when the
    // disk neither took nor refused them in time, or it is full and could not be cut. Of one that somebody
    // else cut off: what is left of them. Of one whose server has gone: what was flushed. After flushFailed
    // nobody knows which of them are on the device.
    std::uint64_t bytes = 0;
    // 32 hexadecimal digits; empty unless asked for and complete, or when a file with rewritten bytes could
    // not be read.
    std::string hash;
    // True when readers will take the file for a link, as they do with every file of 512 bytes that does
    // not begin with "RIFF". Record a byte more.
    bool mistakenForLink = false;
    MediaError error;  // the first failure
};

// MediaWriter: records one media file so that nothing is lost.
//
//   MediaWriter writer(cookie, drive->getFsysLocation(cookie, L"mov"));
//   while (const auto frame = nextFrame())
//       if (!writer.write(*frame))
//           break;                      // writer.error() says why
//   const MediaRecording recorded = writer.finish();
//
// Names:      the file grows under its name with ".partial" behind it, which scans pass over. finish gives
//             it its name; only then the media cache and its listeners hear of it. After a crash the
//             ".partial" file is all that is there; Recovery.h finishes or removes it. Nothing is ever
//             replaced: a file under either name makes the constructor fail.
// Bytes:      writes of any size, at any pace. Whole blocks go to the disk unbuffered and asynchronously; a
//             write copies its bytes and returns, and waits only while bytesInFlight are under way.
// Failures:   the first one is told by the next call and by every call after it; nothing more is written.
//             finish keeps what can be kept: the file up to the last whole write before the failure.
//             A full disk (diskFull) ends a recording in order: the file is cut there and gets its final
//             name. After any other failure it stays unfinished.
// Threads:    one at a time. error and counters from any.
// The end:    a writer that goes without finish or abandon (an exception, a forgotten call) leaves the
//             unfinished file, cut to whole writes, or none when nothing was written. The engine must run
//             until then.
class MEDIA_API MediaWriter
{
public:
    // Bytes of a block. Larger than the engine's write cache, which so never gets hold of one: it would put
    // the bytes elsewhere.
    static constexpr std::size_t blockBytes = std::size_t{1} << 20;

    // Since the recording began.
    struct Counters
    {
        std::uint64_t writes = 0;       // accepted
        std::uint64_t bytes = 0;        // of these
        std::uint64_t bytesOnDisk = 0;  // handed to the disk and answered for
        std::uint64_t waits = 0;        // writes that had to wait for the disk
        double worstWaitMs = 0;         // the longest that a write took to return
    };

    // Records a file that belongs to no clip. path: of the operating system; its folder must exist.
    explicit MediaWriter(const LightweightString<wchar_t>& path, MediaWriterOptions options = {});
    // Records a file of a clip: its full-resolution file, or a proxy when name has the form of one
    // (MediaFileInfo::makeProxyName).
    MediaWriter(const Cookie& cookie, const MaterialFilename& name, MediaWriterOptions options = {});
    // See The end.
    ~MediaWriter();
    MediaWriter(const MediaWriter&) = delete;
    MediaWriter& operator=(const MediaWriter&) = delete;

    // False when the file could not be begun; error says why.
    [[nodiscard]] bool isOpen() const;
    // The first failure.
    [[nodiscard]] MediaError error() const;
    // The final name.
    [[nodiscard]] const LightweightString<wchar_t>& path() const;
    // The name until then.
    [[nodiscard]] const LightweightString<wchar_t>& partialPath() const;

    // Appends data. True: all of it will be in the file, unless the disk fails. False: none of it will be.
    // Throws nothing: a lack of memory is a failure (noMemory) like any other.
    bool write(std::span<const std::byte> data);
    // Replaces bytes that were written before, from offset on: for headers that tell what came after them.
    // Waits for the disk where they have left memory. False after a failure, and for a range that does not
    // lie in what was written, which changes nothing and is no failure. Where writing it fails, or the
    // machine stops before the next flush, the file holds the old bytes, the new ones, or some of each;
    // what is kept of it is as long as ever.
    bool rewrite(std::uint64_t offset, std::span<const std::byte> data);
    // Waits until all that was written is on the device. The recording can go on. False after a failure.
    bool flush();
    // Ends the recording: writes the rest, flushes it to the device, gives the file its name and tells the
    // media cache. A second call answers the same again.
    MediaRecording finish();
    // Ends the recording and removes the file; where that fails, finish tells its path from then on. Nothing
    // happens after finish.
    void abandon();

    // As they are now; from any thread.
    [[nodiscard]] Counters counters() const;

private:
    class MEDIA_LOCAL Recording;

    std::unique_ptr<Recording> recording_;
};

// What an unfinished recording's name ends with.
inline constexpr const wchar_t* partialEnding = L".partial";
