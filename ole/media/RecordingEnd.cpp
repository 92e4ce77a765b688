// The part of MediaWriter::Recording that ends a recording, well or otherwise.

#include "fsys/MaterialLink.h"
#include "fsys/SystemCache.h"
#include "media/Recording.h"
#include "os/LastError.h"
#include "os/Patience.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

constexpr std::size_t smallestPieceBytes = 512;

// Writes as much as there is room for; the end of it. A file system refuses a large write as a whole although
// a part of it would fit, so each refusal halves what is tried next. Some find out only when they flush what
// they took: *flushCode is then the last refusal.
std::uint64_t writeInPieces(iFile& file, std::uint64_t position, const unsigned char* bytes, std::size_t size,
                            unsigned* flushCode)
{
    std::size_t written = 0;
    for (std::size_t piece = size; written != size;) {
        piece = std::min(piece, size - written);
        std::size_t done = 0;
        const bool all = file.write(position + written, bytes + written, piece, &done);
        const bool kept = done == 0 || file.flush();
        if (kept)
            written += done;
        else
            *flushCode = lastError();
        if (all && kept)
            continue;
        if (!kept && diskFullOr(MediaErrorCode::none, *flushCode) != MediaErrorCode::diskFull)
            break;
        if (piece <= smallestPieceBytes)
            break;
        piece /= 2;
    }
    return position + written;
}

}  // namespace

MediaRecording MediaWriter::Recording::end(bool giveName)
{
    if (result_)
        return *result_;
    MediaRecording result;
    endFile(giveName, result);
    // Last, because listeners may do anything. Scans pass over empty files.
    if (clip_ && result.hasFinalName && result.bytes != 0)
        SystemCache::addFile(clip_->cookie, clip_->name, true);
    return result;
}

void MediaWriter::Recording::endFile(bool giveName, MediaRecording& result)
{
    const os::Patience patience(stallLimitMs_);
    if (begun_) {
        result.path = file_.partialPath();
        result.bytes = accepted_;
        if (!completeFile())
            keepWhatCanBeKept(giveName, result);
        else if (giveName)
            name(result);
        else if (accepted_ == 0 && file_.remove())
            result.path = {};
        noteIfGone(result);
    }
    result.error = error();
    result.complete = result.hasFinalName && !result.error;
    if (hash_ && result.complete)
        result.hash = rewritten_ ? hashOfFile() : hash_->text();
    close(result);
}

void MediaWriter::Recording::close(const MediaRecording& result)
{
    file_.release();
    current_.reset();
    queue_.clear();
    memory_.reset();
    result_ = result;
}

// What stands under the unfinished name now may be another's.
void MediaWriter::Recording::noteIfGone(MediaRecording& result)
{
    if (result.hasFinalName || result.path.empty() || !file_.isGone())
        return;
    fail(recordingError(MediaErrorCode::fileVanished, 0, file_.partialPath()));
    result.path = {};
    result.bytes = 0;
}

// True when every byte that was accepted is on the device.
bool MediaWriter::Recording::completeFile()
{
    if (hasFailed() || !waitUntilAtMost(0) || !writeRest())
        return false;
    // Nothing may follow the flush.
    file_.closeEngine();
    FILE_INFO info;
    const bool isKnown = file_.handle().getInfo(&info);
    if (!isKnown || info.size != accepted_) {
        deviceIsUnknown_ = true;
        fail(MediaErrorCode::writeFailed, isKnown ? 0 : lastError());
        return false;
    }
    return flushDevice();
}

bool MediaWriter::Recording::flushDevice()
{
    if (!file_.handle().flush()) {
        deviceIsUnknown_ = true;
        fail(MediaErrorCode::flushFailed, lastError());
        return false;
    }
    flushed_ = accepted_;
    noteOnDisk();
    return true;
}

void MediaWriter::Recording::keepWhatCanBeKept(bool giveName, MediaRecording& result)
{
    const bool allEnded = queue_.waitUntilAllEnded() == WriteQueue::Wait::done;
    file_.closeEngine();
    noteOnDisk();
    if (!allEnded) {
        // What is still under way may yet arrive, and cutting would wait for it as well.
        result.bytes = std::max(wholeEnd(queue_.writtenEnd()), flushed_);
        return;
    }
    if (deviceIsUnknown_) {
        result.bytes = bytesOfUnknown();
        return;
    }
    result.bytes = bytesToKeep();
    if (deviceIsUnknown_) {
        result.bytes = bytesOfUnknown();
        return;
    }
    if (result.bytes == 0) {
        // Something may have reached the disk all the same.
        if (!flushFoundNoRoom_ && file_.remove())
            result.path = {};
        return;
    }
    if (!cutAndFlush(&result.bytes))
        // A server may have answered for bytes that it never passed on, and nobody can ask it any more.
        result.bytes = std::min(result.bytes, bytesOfUnknown());
    else if (giveName && error().code == MediaErrorCode::diskFull)
        name(result);
}

// Cuts the file to *bytes, or to less, which *bytes then is, and flushes it.
bool MediaWriter::Recording::cutAndFlush(std::uint64_t* bytes)
{
    if (!file_.handle().setSize(*bytes))
        return false;
    if (file_.handle().flush())
        return true;
    if (diskFullOr(MediaErrorCode::none, lastError()) != MediaErrorCode::diskFull)
        return false;
    // What was written in another way may have found room in memory only. The blocks that the engine took
    // went around it.
    *bytes = file_.isBuffered() ? flushed_ : std::max(wholeEnd(queue_.writtenEnd()), flushed_);
    return *bytes != 0 && file_.handle().setSize(*bytes) && file_.handle().flush();
}

// All was written, so as much is there as the file is long.
std::uint64_t MediaWriter::Recording::bytesOfUnknown()
{
    FILE_INFO info;
    if (!file_.handle().getInfo(&info))
        return flushed_;
    const std::uint64_t there = std::min(info.size, accepted_);
    // Where the writes before that ended is not known any more.
    return there < queue_.writtenEnd() ? there : wholeEnd(there);
}

std::uint64_t MediaWriter::Recording::bytesToKeep()
{
    // A disk that fails is not asked to do it once more.
    const std::uint64_t good =
        error().code == MediaErrorCode::writeFailed ? queue_.writtenEnd() : writeOtherwise();
    if (flushFoundNoRoom_ && file_.isBuffered())
        return flushed_;
    // What was flushed stays, although the block that it is a part of may have failed later.
    return std::max(wholeEnd(good), flushed_);
}

// Writes what has been accepted and is not on the disk, as far as there is room. The result is the end of
// what is on the disk without a gap.
std::uint64_t MediaWriter::Recording::writeOtherwise()
{
    std::uint64_t good = queue_.writtenEnd();
    // Blocks behind the one that failed have taken room, for nothing. They are still in memory.
    const bool isCut = queue_.hasWrittenBehind() && file_.handle().setSize(std::max(good, flushed_));
    for (const Qz::Ptr<WriteBlock>& block : queue_.blocks())
        if (!writeOtherwise(*block, isCut, &good))
            return good;
    if (current_)
        writeOtherwise(*current_, isCut, &good);
    return good;
}

// False where it ends.
bool MediaWriter::Recording::writeOtherwise(const WriteBlock& block, bool isCut, std::uint64_t* good)
{
    if (!isCut && block.state() == WriteBlock::State::written) {
        *good = block.end();
        return true;
    }
    const std::uint64_t end = std::min(block.end(), accepted_);
    if (end <= block.position())
        return false;
    unsigned flushCode = 0;
    *good = writeInPieces(file_.handle(), block.position(), block.getBuffer(),
                          static_cast<std::size_t>(end - block.position()), &flushCode);
    if (flushCode == 0)
        return *good == end;
    // A failed flush loses what waited in memory, and later ones do not tell of it again.
    if (diskFullOr(MediaErrorCode::none, flushCode) != MediaErrorCode::diskFull)
        deviceIsUnknown_ = true;
    else
        flushFoundNoRoom_ = true;
    return *good == end;
}

std::uint64_t MediaWriter::Recording::wholeEnd(std::uint64_t limit) const
{
    if (current_)
        if (const std::optional<std::uint64_t> end = current_->wholeEnd(limit))
            return *end;
    return queue_.wholeEnd(limit);
}

void MediaWriter::Recording::name(MediaRecording& result)
{
    if (const MediaError error = file_.giveName(&result.hasFinalName))
        fail(error);
    if (!result.hasFinalName)
        return;
    result.path = file_.path();
    result.mistakenForLink = isMistakenForLink(result.bytes);
}

bool MediaWriter::Recording::isMistakenForLink(std::uint64_t bytes)
{
    constexpr std::string_view notALink = "RIFF";
    std::array<char, notALink.size()> start{};
    return bytes == MaterialLink::linkFileSize &&
           file_.handle().read(0, start.data(), start.size(), nullptr) &&
           std::string_view(start.data(), start.size()) != notALink;
}

void MediaWriter::Recording::abandon()
{
    if (result_)
        return;
    const os::Patience patience(stallLimitMs_);
    MediaRecording result;
    if (begun_) {
        queue_.waitUntilAllEnded();
        file_.closeEngine();
        if (!file_.remove())
            result.path = file_.partialPath();
    }
    result.error = error();
    if (!result.error)
        result.error = recordingError(MediaErrorCode::notOpen, 0, file_.path());
    close(result);
}
