#pragma once

#include "Qz/Cookie.h"
#include "fsys/MaterialFilename.h"
#include "media/ContentHash.h"
#include "media/MediaWriter.h"
#include "media/RecordingFile.h"
#include "media/SpaceWatch.h"
#include "media/WriteBlock.h"
#include "media/WriteQueue.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

// MediaWriter::Recording: the recording behind a MediaWriter.
//
// What is written fills one block after the other. A full block goes to the queue and the disk; the last
// one, mostly part of a block, is written at a flush and at the end.
//
// Threads:    as MediaWriter. The guard is for error and counters, and never held around a call.
// Positions:  bytes from the start of the file.
class MediaWriter::Recording
{
public:
    // clip: the file's place in the media cache, if it has one.
    struct Clip
    {
        Cookie cookie;
        MaterialFilename name;
    };

    Recording(const LightweightString<wchar_t>& path, const std::optional<Clip>& clip,
              const MediaWriterOptions& options);
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    void begin();
    [[nodiscard]] bool isOpen() const { return begun_; }
    [[nodiscard]] MediaError error() const;
    [[nodiscard]] const LightweightString<wchar_t>& path() const { return file_.path(); }
    [[nodiscard]] const LightweightString<wchar_t>& partialPath() const { return file_.partialPath(); }
    [[nodiscard]] Counters counters() const;

    bool write(std::span<const std::byte> data);
    bool rewrite(std::uint64_t offset, std::span<const std::byte> data);
    bool flush();
    // Ends the recording; without giveName the file keeps its unfinished name.
    MediaRecording end(bool giveName);
    void abandon();

private:
    void fail(MediaErrorCode code, unsigned platformCode);
    void fail(MediaError error);
    void failToWrite(unsigned platformCode);
    [[nodiscard]] bool hasFailed() const;
    [[nodiscard]] bool isWritable();

    bool takeIn(std::span<const std::byte> data, bool* waited);
    bool beginBlock(bool* waited);
    void endWrite(std::size_t bytes);
    void sendFullBlock();
    bool waitUntilAtMost(std::size_t blocks, bool* waited = nullptr);
    bool writeRest();
    bool rewriteOnDisk(std::uint64_t offset, std::span<const std::byte> data);
    [[nodiscard]] std::string hashOfFile();
    [[nodiscard]] std::uint64_t bytesUnderWay() const;
    void noteCounters(bool waited, double startedMs);
    void noteOnDisk();

    void endFile(bool giveName, MediaRecording& result);
    bool completeFile();
    bool flushDevice();
    void keepWhatCanBeKept(bool giveName, MediaRecording& result);
    void noteIfGone(MediaRecording& result);
    [[nodiscard]] std::uint64_t bytesToKeep();
    [[nodiscard]] std::uint64_t bytesOfUnknown();
    bool cutAndFlush(std::uint64_t* bytes);
    [[nodiscard]] std::uint64_t writeOtherwise();
    bool writeOtherwise(const WriteBlock& block, bool isCut, std::uint64_t* good);
    [[nodiscard]] std::uint64_t wholeEnd(std::uint64_t limit) const;
    void name(MediaRecording& result);
    [[nodiscard]] bool isMistakenForLink(std::uint64_t bytes);
    void close(const MediaRecording& result);

    RecordingFile file_;
    const std::optional<Clip> clip_;
    const std::size_t blocksMax_;
    const unsigned stallLimitMs_;
    std::shared_ptr<BlockMemory> memory_;
    WriteQueue queue_;
    SpaceWatch space_;
    std::optional<ContentHash> hash_;

    bool begun_ = false;
    Qz::Ptr<WriteBlock> current_;           // being filled; null at the start and behind a full block
    std::uint64_t nextBlock_ = 0;           // where the block after that begins
    std::uint64_t accepted_ = 0;            // end of the last whole write
    std::uint64_t flushed_ = 0;             // on the device up to here, whatever happens behind it
    bool rewritten_ = false;                // bytes were replaced after they had been hashed
    bool deviceIsUnknown_ = false;          // all was written, and nobody knows what arrived
    bool flushFoundNoRoom_ = false;         // what waited in memory may be lost
    std::optional<MediaRecording> result_;  // set when the recording has ended

    mutable std::mutex guard_;
    MediaError error_;   // the first one; under guard_
    Counters counters_;  // under guard_
};
