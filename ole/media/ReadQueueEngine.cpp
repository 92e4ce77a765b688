// The part of ReadQueue that deals with the engine: giving it pieces, refusals, new files, and the close.

#include "fsys/FsysEntry.h"
#include "fsys/FsysFile.h"
#include "media/ReadQueue.h"

#include <algorithm>
#include <utility>

namespace {

using std::chrono::milliseconds;

constexpr unsigned coalesceLength = 1U << 20;
// The engine's list takes about 40 requests, finished and failed ones among them.
constexpr std::size_t underWayMax = 32;
constexpr unsigned failuresPerFile = 8;

constexpr milliseconds retryWhenIdle{1};
constexpr milliseconds retryWhenBusy{50};
constexpr milliseconds stuckBeforeNewFile{50};
constexpr milliseconds stuckLimit{5000};
// Together with what FsysClose waits after it this stays below the longest wait of FsysClose.
constexpr milliseconds closeWait{3000};

}  // namespace

MediaError ReadQueue::open()
{
    MediaError error;
    FsysFile* const file = source_->openWithEngine(coalesceLength, error);
    const std::lock_guard<std::mutex> hold(guard_);
    installFile(file, error);
    return error;
}

void ReadQueue::start(Effort effort)
{
    Lock lock(guard_);
    if (effort == Effort::all)
        tendFiles(lock);
    while (const Piece piece = takeStartable())
        give(lock, piece);
}

ReadQueue::Piece ReadQueue::takeStartable()
{
    std::deque<Piece>& queue = urgent_.empty() ? ahead_ : urgent_;
    if (queue.empty() || closed_ || distrusted_ || wantsNewFile_ || !current_ ||
        started_.size() >= underWayMax || !isRefusalOver())
        return {};
    Piece piece = std::move(queue.front());
    queue.pop_front();
    return piece;
}

void ReadQueue::give(Lock& lock, const Piece& piece)
{
    const std::shared_ptr<EngineFile> file = current_;
    noteCompany(piece);
    piece->state = ReadPiece::State::started;
    piece->starter = std::this_thread::get_id();
    piece->file = file;
    ++file->underWay;
    started_.push_back(piece);
    ++starting_;
    ++file->givers;
    lock.unlock();
    Qz::Ptr<iObject> context = piece;
    const unsigned result = file->file->DirectRead(static_cast<long>(piece->offset), piece->bytes,
                                                   piece->mayWait, &ReadQueue::completed, context);
    lock.lock();
    --starting_;
    --file->givers;
    piece->starter = {};
    if (result != 1) {
        takeBack(piece);
    } else {
        refused_ = false;
        stuck_ = false;
        triedNewFile_ = false;
    }
    if (closed_ || file != current_)
        changed();
}

// The engine joins reads that are near each other, and those that lie inside another in any case.
void ReadQueue::noteCompany(const Piece& piece)
{
    for (const Piece& other : started_) {
        const bool overlaps = other->offset < piece->end() && piece->offset < other->end();
        if (other->file == current_ && (joins_ || overlaps)) {
            other->hadCompany = true;
            piece->hadCompany = true;
        }
    }
}

void ReadQueue::takeBack(const Piece& piece)
{
    std::erase(started_, piece);
    --piece->file->underWay;
    piece->file.reset();
    piece->state = ReadPiece::State::waiting;
    if (!piece->readers.empty() || piece->inWindow)
        (piece->isUrgent ? urgent_ : ahead_).push_front(piece);
    const Steady::time_point now = Steady::now();
    if (started_.empty() && !stuck_) {
        stuck_ = true;
        stuckSince_ = now;
    }
    stuck_ = stuck_ && started_.empty();
    refused_ = true;
    refusedAt_ = now;
    endsAtRefusal_ = ends_;
    changed();
}

// Decides about a refusal that goes on although nothing is under way.
bool ReadQueue::isRefusalOver()
{
    if (!refused_ || ends_ != endsAtRefusal_)
        return true;
    const Steady::time_point now = Steady::now();
    if (now - refusedAt_ < (started_.empty() ? retryWhenIdle : retryWhenBusy))
        return false;
    if (!stuck_)
        return true;
    if (now - stuckSince_ >= stuckLimit) {
        stuck_ = false;
        refused_ = false;
        triedNewFile_ = false;
        failWaiting({MediaErrorCode::readFailed, 0});
        return false;
    }
    if (now - stuckSince_ >= stuckBeforeNewFile && current_->failures != 0 && !triedNewFile_) {
        triedNewFile_ = true;
        wantsNewFile_ = true;
        changed();
        return false;
    }
    return true;
}

bool ReadQueue::needsNewFile() const
{
    return distrusted_ || wantsNewFile_ || (current_ && current_->failures >= failuresAllowed_);
}

// Closes the files that are done with, and opens another one where that is wanted.
void ReadQueue::tendFiles(Lock& lock)
{
    const auto isIdle = [](const std::shared_ptr<EngineFile>& file) {
        return file->underWay == 0 && file->givers == 0;
    };
    const bool opens = needsNewFile();
    const bool closes = std::any_of(retired_.begin(), retired_.end(), isIdle);
    if (closed_ || tending_ || (!opens && !closes))
        return;
    std::vector<std::shared_ptr<EngineFile>> idle;
    std::copy_if(retired_.begin(), retired_.end(), std::back_inserter(idle), isIdle);
    std::erase_if(retired_, isIdle);
    tending_ = true;
    const unsigned length = joins_ ? coalesceLength : 0;
    const std::shared_ptr<EngineFile> present = current_;
    lock.unlock();
    for (const auto& file : idle)
        FsysClose(file->file, nullptr);
    MediaError error;
    FsysFile* const file = opens ? source_->openWithEngine(length, error) : nullptr;
    if (opens && !file && present)
        FsysSetCoalesceLength(present->file, length);
    lock.lock();
    tending_ = false;
    if (opens)
        installFile(file, error);
    changed();
}

void ReadQueue::installFile(FsysFile* file, const MediaError& error)
{
    wantsNewFile_ = false;
    if (!file) {
        // The one that is there goes on serving, unless its data cannot be trusted.
        failuresAllowed_ = current_ ? current_->failures + failuresPerFile : failuresPerFile;
        if (distrusted_)
            failWaiting({error.code, error.platformCode});
        return;
    }
    if (current_)
        retired_.push_back(std::move(current_));
    current_ = std::make_shared<EngineFile>();
    current_->file = file;
    failuresAllowed_ = failuresPerFile;
    distrusted_ = false;
    refused_ = false;
    stuck_ = false;
}

bool ReadQueue::await(const PendingRead& read, milliseconds stallLimit)
{
    Lock lock(guard_);
    std::uint64_t ends = ends_;
    Steady::time_point since = Steady::now();
    while (read.piecesLeft != 0) {
        const std::uint64_t seen = generation_;
        lock.unlock();
        start(Effort::all);
        lock.lock();
        if (read.piecesLeft != 0)
            waitForChange(lock, seen, stallLimit);
        if (ends_ != ends) {
            ends = ends_;
            since = Steady::now();
        } else if (stallLimit.count() != 0 && Steady::now() - since >= stallLimit) {
            return read.piecesLeft == 0;
        }
    }
    return true;
}

void ReadQueue::waitForChange(std::uint64_t seen, milliseconds longest)
{
    Lock lock(guard_);
    waitForChange(lock, seen, longest);
}

void ReadQueue::waitForChange(Lock& lock, std::uint64_t seen, milliseconds longest)
{
    const auto changed = [this, seen] { return generation_ != seen; };
    if (refused_ && !(urgent_.empty() && ahead_.empty()))
        longest = started_.empty() ? retryWhenIdle : retryWhenBusy;
    if (longest.count() != 0)
        changed_.wait_for(lock, longest, changed);
    else
        changed_.wait(lock, changed);
}

void ReadQueue::close()
{
    Lock lock(guard_);
    closed_ = true;
    changed();
    changed_.wait(lock, [this] { return starting_ == 0 && !tending_; });
    failWaiting({MediaErrorCode::cancelled, 0});
    // FsysClose looks at a few requests only, finished ones among them, before it gives up the others.
    changed_.wait_for(lock, closeWait, [this] { return started_.empty(); });
    std::vector<std::shared_ptr<EngineFile>> files = std::exchange(retired_, {});
    if (current_)
        files.push_back(std::exchange(current_, nullptr));
    lock.unlock();
    for (const auto& file : files)
        FsysClose(file->file, nullptr);
    lock.lock();
    for (const Piece& piece : std::exchange(started_, {}))
        settle(piece, {}, {MediaErrorCode::givenUp, 0});
    const std::vector<Piece> unused = std::exchange(endedAhead_, {});
    lock.unlock();
}
