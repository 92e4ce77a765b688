// The part of ReadQueue that keeps reads and pieces: making them, cancelling them, and their ends.

#include "media/ReadQueue.h"

#include "fsys/FsysEntry.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <algorithm>
#include <utility>

namespace {

constexpr unsigned engineHadNoMemory = 10;  // FsysGetLastError

void removeFrom(std::deque<Qz::Ptr<ReadPiece>>& queue, const Qz::Ptr<ReadPiece>& piece)
{
    if (const auto found = std::find(queue.begin(), queue.end(), piece); found != queue.end())
        queue.erase(found);
}

}  // namespace

void ReadQueue::addPiece(const Read& read, std::uint64_t offset, unsigned bytes)
{
    const Piece piece(new ReadPiece(shared_from_this(), offset, bytes, false));
    // Nobody can join the pieces of a caller that waits for them.
    piece->mayWait = read->isAsync;
    const std::lock_guard<std::mutex> hold(guard_);
    piece->readers.push_back(read);
    read->pieces.push_back(piece);
    ++read->piecesLeft;
    if (closed_)
        settle(piece, {}, {MediaErrorCode::cancelled, 0});
    else
        urgent_.push_back(piece);
}

bool ReadQueue::addPiece(const Read& read, const Piece& ahead)
{
    const std::lock_guard<std::mutex> hold(guard_);
    if (ahead->outcome != MediaErrorCode::none)
        return false;
    read->pieces.push_back(ahead);
    if (ahead->state == ReadPiece::State::ended)
        return true;
    read->cached = false;
    ahead->readers.push_back(read);
    ++read->piecesLeft;
    if (ahead->state == ReadPiece::State::waiting && !ahead->isUrgent) {
        removeFrom(ahead_, ahead);
        ahead->isUrgent = true;
        urgent_.push_back(ahead);
    }
    return true;
}

bool ReadQueue::submit(const Read& read)
{
    const std::lock_guard<std::mutex> hold(guard_);
    // A caller that waits hears of the close from the pieces.
    if (closed_ && read->isAsync)
        return false;
    if (--read->piecesLeft == 0)
        finish(read);
    return true;
}

bool ReadQueue::askAlone(const Read& read)
{
    const Piece piece(new ReadPiece(shared_from_this(), read->offset, read->bytes, false));
    const std::lock_guard<std::mutex> hold(guard_);
    if (closed_)
        return false;
    joins_ = false;
    for (const Piece& failed : read->pieces)
        wantsNewFile_ = wantsNewFile_ || failed->file == current_;
    read->retried = true;
    read->cached = false;
    read->pieces.assign(1, piece);
    read->piecesLeft = 1;
    piece->readers.push_back(read);
    urgent_.push_front(piece);
    changed();
    return true;
}

ReadQueue::Piece ReadQueue::addAhead(std::uint64_t offset, unsigned bytes)
{
    const Piece piece(new ReadPiece(shared_from_this(), offset, bytes, true));
    const std::lock_guard<std::mutex> hold(guard_);
    if (closed_)
        settle(piece, {}, {MediaErrorCode::cancelled, 0});
    else
        ahead_.push_back(piece);
    return piece;
}

void ReadQueue::dropAhead(const Piece& piece)
{
    const std::lock_guard<std::mutex> hold(guard_);
    piece->inWindow = false;
    if (piece->readers.empty() && piece->state == ReadPiece::State::waiting)
        removeWaiting(piece);
}

bool ReadQueue::cancel(const Read& read)
{
    const std::lock_guard<std::mutex> hold(guard_);
    const auto waits = [](const Piece& piece) { return piece->state == ReadPiece::State::waiting; };
    if (read->piecesLeft == 0 || !std::all_of(read->pieces.begin(), read->pieces.end(), waits))
        return false;
    detach(read);
    read->verdict = MediaErrorCode::cancelled;
    read->piecesLeft = 0;
    finish(read);
    return true;
}

void ReadQueue::abandon(const Read& read)
{
    const std::lock_guard<std::mutex> hold(guard_);
    detach(read);
}

void ReadQueue::distrust()
{
    const std::lock_guard<std::mutex> hold(guard_);
    distrusted_ = true;
    changed();
}

ReadQueue::Read ReadQueue::takeEnded()
{
    const std::lock_guard<std::mutex> hold(guard_);
    if (ended_.empty())
        return {};
    Read read = std::move(ended_.front());
    ended_.pop_front();
    return read;
}

std::vector<ReadQueue::Piece> ReadQueue::takeEndedAhead()
{
    const std::lock_guard<std::mutex> hold(guard_);
    return std::exchange(endedAhead_, {});
}

// Takes no lock of the engine and makes no call into it: this may run under the engine's locks.
void ReadQueue::completed(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
{
    auto& piece = static_cast<ReadPiece&>(*context);
    Outcome outcome;
    if (status != eRequestSuccess || !data || !data->getBuffer())
        outcome = FsysGetLastError() == engineHadNoMemory ? Outcome{MediaErrorCode::noMemory, 0}
                                                          : Outcome{MediaErrorCode::readFailed, lastError()};
    piece.queue->endOf(piece, data, outcome);
}

void ReadQueue::endOf(ReadPiece& piece, const Qz::Ptr<iMemHolder>& data, Outcome outcome)
{
    const std::lock_guard<std::mutex> hold(guard_);
    // One that was given up may end after all, when its end had begun before its file was closed.
    if (piece.state != ReadPiece::State::started)
        return;
    const auto found = std::find(started_.begin(), started_.end(), Piece(&piece));
    const Piece held = std::move(*found);
    started_.erase(found);
    piece.wasAtOnce = piece.starter == std::this_thread::get_id();
    --piece.file->underWay;
    if (outcome.code != MediaErrorCode::none)
        ++piece.file->failures;
    ++ends_;
    settle(held, data, outcome);
}

void ReadQueue::settle(const Piece& piece, const Qz::Ptr<iMemHolder>& data, Outcome outcome)
{
    piece->state = ReadPiece::State::ended;
    piece->outcome = outcome.code;
    piece->platformCode = outcome.platformCode;
    if (outcome.code == MediaErrorCode::none)
        piece->data = data;
    if (outcome.code == MediaErrorCode::none && piece->inWindow)
        endedAhead_.push_back(piece);
    for (const Read& read : piece->readers)
        if (--read->piecesLeft == 0)
            finish(read);
    piece->readers.clear();
    changed();
}

void ReadQueue::finish(const Read& read)
{
    read->endedMs = OS()->getClock()->msecsPrecise();
    if (read->isAsync)
        ended_.push_back(read);
    changed();
}

void ReadQueue::detach(const Read& read)
{
    for (const Piece& piece : read->pieces) {
        std::erase(piece->readers, read);
        if (piece->readers.empty() && !piece->inWindow && piece->state == ReadPiece::State::waiting)
            removeWaiting(piece);
    }
    read->pieces.clear();
}

void ReadQueue::removeWaiting(const Piece& piece) { removeFrom(piece->isUrgent ? urgent_ : ahead_, piece); }

void ReadQueue::failWaiting(Outcome outcome)
{
    for (std::deque<Piece>* const queue : {&urgent_, &ahead_})
        for (const Piece& piece : std::exchange(*queue, {}))
            settle(piece, {}, outcome);
}

void ReadQueue::changed()
{
    ++generation_;
    changed_.notify_all();
}

std::uint64_t ReadQueue::generation() const
{
    const std::lock_guard<std::mutex> hold(guard_);
    return generation_;
}

void ReadQueue::wake()
{
    const std::lock_guard<std::mutex> hold(guard_);
    changed();
}
