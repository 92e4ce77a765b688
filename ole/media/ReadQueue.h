#pragma once

#include "fsys/CompletionFunction.h"
#include "media/ReadPiece.h"
#include "media/ReadSource.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

// ReadQueue: gives the pieces of a reader to the engine, as many as it takes, and gathers what comes back.
//
// Waiting:    at most 32 pieces are in the engine. The others wait here, those that reads ask for before
//             those that are read ahead; these can still be cancelled.
// Refusals:   a piece that the engine refuses is given again after the next end, or after a millisecond when
//             nothing is under way; after some seconds of that all that waits fails.
// Failures:   fill the engine's list for good, so after some of them the file is opened anew. After a
//             failure in company the new file joins no reads, so that one that is asked again fails for
//             itself only.
// Threads:    any. No thread of its own: whoever waits here starts what can be started.
// Locks:      one guard, never held across a call into the engine: completions take it, on threads that hold
//             locks of the engine.
// Ownership:  pieces refer to the queue; close() ends that.
class ReadQueue : public std::enable_shared_from_this<ReadQueue>
{
public:
    using Read = std::shared_ptr<PendingRead>;
    using Piece = Qz::Ptr<ReadPiece>;
    // What may be done on the way: nothing that opens or closes files, or all.
    enum class Effort { startOnly, all };

    explicit ReadQueue(std::shared_ptr<const ReadSource> source) : source_(std::move(source)) {}
    [[nodiscard]] MediaError open();
    // Cancels what waits, waits for what is under way and gives up what does not end. Everything has ended
    // afterwards, and nothing is taken any more. REQUIRES: no completion function is running on this thread.
    void close();

    // --- making reads

    // Adds the next piece of a read: one of its own, or one of the window. The latter is not taken when it
    // has failed.
    void addPiece(const Read& read, std::uint64_t offset, unsigned bytes);
    [[nodiscard]] bool addPiece(const Read& read, const Piece& ahead);
    // All pieces of the read are there. False, of an asynchronous read: the queue is closed, it will not end.
    [[nodiscard]] bool submit(const Read& read);
    // Replaces the pieces of an ended read by one of its own, in an engine file that joins nothing. False:
    // the queue is closed, nothing is changed.
    [[nodiscard]] bool askAlone(const Read& read);
    // A piece of the window.
    [[nodiscard]] Piece addAhead(std::uint64_t offset, unsigned bytes);
    // The window has no use for it any more.
    void dropAhead(const Piece& piece);

    // True when none of the read's pieces was given to the engine: it has then ended as cancelled.
    [[nodiscard]] bool cancel(const Read& read);
    // Nobody waits for the read any more.
    void abandon(const Read& read);
    // What the engine has read so far may be made up (a file that shrank leaves zeros): later reads go to a
    // new engine file.
    void distrust();

    // --- running

    // Starts what there is room for.
    void start(Effort effort);
    // Waits until the read has ended. False when nothing at all has ended for so long; 0 waits for ever.
    [[nodiscard]] bool await(const PendingRead& read, std::chrono::milliseconds stallLimit);
    // The next asynchronous read that has ended, in the order of their ends; null when there is none.
    [[nodiscard]] Read takeEnded();
    // Pieces of the window that have come in well since the last call.
    [[nodiscard]] std::vector<Piece> takeEndedAhead();
    // Changes with everything that a waiter may want to act on.
    [[nodiscard]] std::uint64_t generation() const;
    // Waits until it is another than seen, or until a refused piece is due again, or no longer than that; 0
    // waits for ever.
    void waitForChange(std::uint64_t seen, std::chrono::milliseconds longest);
    void wake();

private:
    using Lock = std::unique_lock<std::mutex>;
    using Steady = std::chrono::steady_clock;
    struct Outcome
    {
        MediaErrorCode code = MediaErrorCode::none;
        unsigned platformCode = 0;
    };

    static void completed(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status);
    void endOf(ReadPiece& piece, const Qz::Ptr<iMemHolder>& data, Outcome outcome);

    // REQUIRES of all that follow: the guard is held.
    void changed();
    void settle(const Piece& piece, const Qz::Ptr<iMemHolder>& data, Outcome outcome);
    void finish(const Read& read);
    void detach(const Read& read);
    void removeWaiting(const Piece& piece);
    void failWaiting(Outcome outcome);
    [[nodiscard]] Piece takeStartable();
    void give(Lock& lock, const Piece& piece);
    void noteCompany(const Piece& piece);
    void takeBack(const Piece& piece);
    [[nodiscard]] bool isRefusalOver();
    void tendFiles(Lock& lock);
    [[nodiscard]] bool needsNewFile() const;
    void installFile(FsysFile* file, const MediaError& error);
    void waitForChange(Lock& lock, std::uint64_t seen, std::chrono::milliseconds longest);

    const std::shared_ptr<const ReadSource> source_;
    mutable std::mutex guard_;  // guards what follows
    std::condition_variable changed_;
    std::uint64_t generation_ = 0;
    bool closed_ = false;

    std::deque<Piece> urgent_;  // waiting
    std::deque<Piece> ahead_;   // waiting, of the window
    std::vector<Piece> started_;
    unsigned starting_ = 0;  // threads that are giving a piece to the engine
    std::deque<Read> ended_;
    std::vector<Piece> endedAhead_;

    std::shared_ptr<EngineFile> current_;
    std::vector<std::shared_ptr<EngineFile>> retired_;  // closed when nothing of them is under way
    bool tending_ = false;                              // a thread opens or closes files
    bool joins_ = true;                                 // the engine may join neighbours
    bool distrusted_ = false;
    bool wantsNewFile_ = false;
    unsigned failuresAllowed_ = 0;  // of the current file, before another is wanted

    bool refused_ = false;  // the last piece that was offered
    bool triedNewFile_ = false;
    std::uint64_t ends_ = 0;
    std::uint64_t endsAtRefusal_ = 0;
    Steady::time_point refusedAt_;
    Steady::time_point stuckSince_;  // refused with nothing under way
    bool stuck_ = false;
};
