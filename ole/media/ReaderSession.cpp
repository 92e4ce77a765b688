// The part of MediaReader::Session that is common to all reads: opening and closing, planning and judging.

#include "media/ReaderSession.h"

#include "os/LastError.h"
#include "os/OS.h"
#include "os/Patience.h"

#include <algorithm>
#include <cerrno>
#include <utility>

MediaReader::Session::Session(const LightweightString<wchar_t>& path, bool isClip)
    : source_(std::make_shared<ReadSource>(path, isClip)), queue_(std::make_shared<ReadQueue>(source_))
{}

MediaError MediaReader::Session::open()
{
    openError_ = source_->open();
    if (!openError_)
        openError_ = queue_->open();
    return openError_;
}

void MediaReader::Session::close()
{
    std::thread worker;
    {
        const std::lock_guard<std::mutex> hold(guard_);
        closing_ = true;
        worker.swap(worker_);
    }
    queue_->close();
    if (worker.joinable()) {
        workerEnds_ = true;
        queue_->wake();
        worker.join();
    }
    concludeEnded();
    dropWindow();
    callbacks_.finish();
}

std::uint64_t MediaReader::Session::size() const
{
    FILE_INFO info;
    if (openError_)
        return 0;
    const MediaError error = source_->look(info);
    return !error || error.code == MediaErrorCode::fileVanished ? info.size : 0;
}

MediaReader::Counters MediaReader::Session::counters() const
{
    const std::lock_guard<std::mutex> hold(guard_);
    return counters_;
}

// A read that gave data was either answered from what was there or had to wait; one that gave none is
// neither.
void MediaReader::Session::countAnswer(std::uint64_t bytes, bool cached, double waitMs)
{
    const std::lock_guard<std::mutex> hold(guard_);
    if (bytes == 0)
        return;
    counters_.bytes += bytes;
    ++(cached ? counters_.cacheAnswers : counters_.waits);
    if (!cached)
        counters_.worstWaitMs = std::max(counters_.worstWaitMs, waitMs);
}

// --- planning

// In steps, so that a close does not wait for the whole of a long limit.
MediaError MediaReader::Session::lookPatiently(FILE_INFO& info)
{
    constexpr unsigned longestStepMs = 2000;
    const unsigned limitMs = stallLimitMs_;
    const unsigned stepMs = limitMs == 0 ? longestStepMs : std::min(longestStepMs, limitMs);
    for (unsigned waitedMs = stepMs;; waitedMs += stepMs) {
        const os::Patience patience(stepMs);
        MediaError error = source_->look(info);
        const bool isOverdue = error && errnoFromError(error.platformCode) == ETIMEDOUT;
        if (!isOverdue || (limitMs != 0 && waitedMs >= limitMs))
            return error;
        const std::lock_guard<std::mutex> hold(guard_);
        if (closing_)
            return error;
    }
}

MediaError MediaReader::Session::lookBriefly(FILE_INFO& info)
{
    const MediaError error = source_->look(info);
    if (!error || errnoFromError(error.platformCode) != ETIMEDOUT)
        return error;
    // The read is judged when it ends, and by then the server has answered.
    const std::lock_guard<std::mutex> hold(guard_);
    info = seen_.value_or(source_->atOpen());
    return {};
}

// Cuts the range off at the end of the file.
MediaError MediaReader::Session::findRange(const FILE_INFO& info, std::uint64_t offset, std::uint64_t& bytes)
{
    if (wasRewritten(info)) {
        queue_->distrust();
        dropWindow();
    }
    if (offset >= info.size)
        return source_->error(MediaErrorCode::beyondEnd);
    bytes = std::min(bytes, info.size - offset);
    return {};
}

// The engine answers from what it has read before. A file that grows keeps that true; one that has changed
// without growing does not.
bool MediaReader::Session::wasRewritten(const FILE_INFO& info)
{
    const std::lock_guard<std::mutex> hold(guard_);
    const bool rewritten = seen_ && info.modifiedNs != seen_->modifiedNs && info.size <= seen_->size;
    seen_ = info;
    return rewritten;
}

void MediaReader::Session::note(std::uint64_t offset, std::uint64_t bytes)
{
    std::vector<Piece> dropped;
    {
        const std::lock_guard<std::mutex> hold(guard_);
        window_.note(offset, bytes, dropped);
    }
    release(dropped);
}

// Gives the read its pieces: those of the window where it has them, its own for the rest.
void MediaReader::Session::plan(const Read& read)
{
    std::uint64_t at = read->offset;
    const auto fillUpTo = [&](std::uint64_t end) {
        if (at < end)
            queue_->addPiece(read, at, static_cast<unsigned>(end - at));
        at = std::max(at, end);
    };
    for (const Piece& piece : window_.pieces()) {
        if (piece->end() <= at || piece->offset >= read->end())
            continue;
        fillUpTo(piece->offset);
        if (queue_->addPiece(read, piece))
            at = std::min(piece->end(), read->end());
    }
    fillUpTo(read->end());
}

void MediaReader::Session::fillWindow(std::uint64_t fileBytes)
{
    std::vector<Piece> dropped;
    {
        const std::lock_guard<std::mutex> hold(guard_);
        window_.pass(dropped);
        for (ReadAhead::Range next = window_.missing(fileBytes); next.bytes != 0;
             next = window_.missing(fileBytes))
            window_.add(queue_->addAhead(next.offset, next.bytes));
    }
    release(dropped);
}

void MediaReader::Session::dropWindow()
{
    std::vector<Piece> dropped;
    {
        const std::lock_guard<std::mutex> hold(guard_);
        window_.clear(dropped);
    }
    release(dropped);
}

void MediaReader::Session::release(const std::vector<Piece>& dropped)
{
    for (const Piece& piece : dropped)
        queue_->dropAhead(piece);
}

// --- judging

// Whether the data of an ended read is the file's. Judgement::again: it failed together with others, which
// need not mean that its own range cannot be read.
MediaReader::Session::Judgement MediaReader::Session::judge(const PendingRead& read, MediaError& error)
{
    error = {};
    const ReadPiece* failed = nullptr;
    bool together = false;
    for (const Piece& piece : read.pieces) {
        if (piece->outcome == MediaErrorCode::none)
            continue;
        together = together || piece->hadCompany || piece->madeAhead;
        const bool ownDoing =
            piece->outcome == MediaErrorCode::cancelled || piece->outcome == MediaErrorCode::givenUp;
        if (!failed || ownDoing)
            failed = piece.get();
        if (ownDoing)
            break;
    }
    const MediaErrorCode verdict = failed ? failed->outcome : read.verdict;
    if (verdict == MediaErrorCode::cancelled || verdict == MediaErrorCode::givenUp) {
        error = source_->error(verdict);
        return Judgement::final;
    }
    error = checkFile(read.end());
    if (error || !failed)
        return Judgement::final;
    error = failed->outcome == MediaErrorCode::readFailed
                ? source_->failure(failed->platformCode)
                : source_->error(failed->outcome, failed->platformCode);
    return together && !read.retried ? Judgement::again : Judgement::final;
}

// The engine fills up with zeros what it could not read because the file ended before.
MediaError MediaReader::Session::checkFile(std::uint64_t end)
{
    FILE_INFO info;
    if (const MediaError error = lookPatiently(info))
        return error;
    if (info.size >= end)
        return {};
    queue_->distrust();
    dropWindow();
    return source_->error(MediaErrorCode::fileShrank);
}
