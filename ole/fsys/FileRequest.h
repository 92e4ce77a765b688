#pragma once

#include "Qz/Ptr.h"
#include "Qz/Vector.h"
#include "Qz/iMemHolder.h"
#include "Qz/iObject.h"
#include "fsys/CompletionFunction.h"
#include "os/iAsyncContext.h"
#include "os/iThreadEvent.h"

#include <atomic>
#include <cstdint>
#include <vector>

class FileRequest;
class FsysFile;

// CompletionInfo: one caller that waits for a part of a request.
struct CompletionInfo
{
    CompletionInfo() = default;
    CompletionInfo(FsysCompletionFunction fn, const Qz::Ptr<iObject>& callerContext,
                   unsigned long filePosition, unsigned int bytes)
        : function(fn), context(callerContext), position(filePosition), byteCount(bytes)
    {}

    FsysCompletionFunction function = nullptr;
    Qz::Ptr<iObject> context;
    std::uint64_t position = 0;  // file position of the caller's first byte
    std::uint32_t byteCount = 0;
    std::uint32_t bufferOffset = 0;  // of the caller's first byte, counted from the request's position
};

// SyncFileRequest: the context by which a synchronous request wakes its waiters.
class SyncFileRequest : public iObject
{
public:
    explicit SyncFileRequest(FileRequest* request) : request_(request) {}

    // The completion function of synchronous requests. A waiter wakes after an error as after a success.
    static void SynchWaiter(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status);

    // Points at another request after a merge, and at none once its request is gone.
    void setRequest(FileRequest* request) { request_ = request; }

private:
    FileRequest* request_;
};

// FileRequest: one read or write of a byte range of one file, with the callers that wait for it.
//
// Life:       new -> queued -> started -> completing or slow -> complete; or failed. A complete read stays
//             in its file's list and serves later reads from its memory until it is evicted.
// Threads:    queued requests change under their file's lock only. From the moment the platform has
//             accepted the transfer until its completion has been executed the request is "in flight", and
//             the completion thread, which takes no engine lock, works on it at the same time as the
//             threads that hold the file's lock. Private bits beside the status keep them apart:
//               IN_FLIGHT  the platform has the transfer, or is being given it.
//               MERGING    a thread under the file's lock is adding callers; the completion waits for the
//                          few instructions that this takes.
//               FINISHING  the completion (or the report of a failed start) has begun; from here on nobody
//                          adds callers, so none is added to a list that is being delivered.
//               ORPHAN     the request was destroyed while in flight; whoever ends it deletes it (or, when
//                          the platform gave its port up, LeftRequests).
//             The exchange that publishes the final status is the completion thread's last access: a
//             request that shows "complete" may be evicted at once.
// Ownership:  a file's list owns its requests. An in-flight request keeps its buffer and its platform
//             context, and counts on its FsysFile so that the file object outlives it.
// Units:      bytes; positions are 64-bit file positions; times in milliseconds.
class FileRequest
{
public:
    enum Status : std::uint32_t {
        NEW = 0,
        QUEUED = 1,
        STARTED = 2,
        COMPLETE = 3,
        COMPLETING = 4,
        FAILED = 5,
        SLOW = 6,
    };

    // Results of StartRequest beside 1; any other number is an error.
    static constexpr unsigned started = 1;
    static constexpr unsigned noBuffer = 10;

    // Largest hole between two reads that a merge bridges and reads as well.
    static constexpr std::uint32_t CoalesceGap_ = 4096;
    // Stamps requests in the order in which they served data.
    static std::atomic<std::uint64_t> usageClock_;

    FileRequest(bool isRead, unsigned byteCount, unsigned long position, bool coalescable, bool synchronous,
                const Qz::Ptr<iMemHolder>& buffer, FsysFile* file, FsysCompletionFunction function,
                const Qz::Ptr<iObject>& context);
    ~FileRequest();
    FileRequest(const FileRequest&) = delete;
    FileRequest& operator=(const FileRequest&) = delete;

    // Ends a request that no list holds any more. Its callers are dropped without a call and its waiters
    // are woken. One in flight is only marked and freed by its completion, which then settles counters.
    // REQUIRES: the file's lock is held if the request was ever listed.
    static void destroy(FileRequest* request);

    // --- transfer

    // Issues the transfer. 1 when the platform took it (the request may then be gone already), 10 when
    // there was no buffer, 0 when the platform refused. REQUIRES: status STARTED, the file's lock held.
    unsigned StartRequest(FsysFile* file);
    // Rounds a read to whole sectors: sets sector offset and sector extra. Does nothing for size 0.
    void ReadSectorAdjust(unsigned sectorSize);
    // Stages the partial sectors of a write in segment and returns the new fill of the segment. Without a
    // segment, the only case that the engine itself brings about, the write goes out as it is.
    unsigned WriteSectorAdjust(unsigned sectorSize, const Qz::Ptr<iMemHolder>& segment);

    // --- callers

    // Index of the last caller served by a transfer that ended at file position end, -1 when none is.
    // Callers are looked at in list order and the first one at or past end stops the walk. Deliberate: a
    // request that grew to the front has a later caller listed first, and a short transfer then serves
    // nobody.
    [[nodiscard]] int SeekCompletionFunction(std::uint64_t end) const;
    // Delivers success to the callers that the transfer reached and error to the others; empties the
    // list. REQUIRES: status COMPLETING or SLOW.
    unsigned doCallbacks();
    // Delivers error to the callers from index first on, recording code for each. The list is kept.
    unsigned NotifyError(unsigned code, unsigned first);
    // 1 when a caller at buffer offset 0 stands before any whose offset exceeds the buffer's size.
    [[nodiscard]] unsigned CheckCompletionList() const;
    // Waits for the end of a synchronous request, without limit. REQUIRES: nobody can evict the request
    // meanwhile; queue operations wait on syncEvent() instead.
    void WaitForSynchCompletion();
    // Stamps the request as the latest that served data.
    void Use();

    // --- merging; REQUIRES: the file's lock is held

    // Takes other's callers into this listed request where ranges, direction, status and the file's
    // coalesce length allow it; 1 when it did. other is then to be destroyed by the caller.
    unsigned Coalesce(FileRequest* other);
    // As Coalesce with a request for range's bytes that has caller as its only one. The range is a request
    // that nobody waits for; it stays as it is. A null function waits for nothing and is left out.
    unsigned CoalesceCaller(const FileRequest& range, CompletionInfo&& caller);
    // False when the places of both alone rule out that Coalesce takes b in: neither begins at most a gap
    // behind the other's end. Looks at nothing that another thread may be changing.
    [[nodiscard]] bool isNear(const FileRequest& b) const
    {
        // One comparison for both sides: b begins from its own length and a gap before this one on.
        const std::uint64_t before = std::uint64_t{b.ByteCount_} + CoalesceGap_;
        return b.position_ - position_ + before <= before + ByteCount_ + CoalesceGap_;
    }
    // b begins inside a, right behind it, or (reads) behind a hole of at most CoalesceGap_. Writes must
    // adjoin in memory as well.
    [[nodiscard]] static bool runs_into(const FileRequest* a, const FileRequest* b);
    [[nodiscard]] bool encompasses(const FileRequest* b) const
    {
        return b->position_ >= position_ && b->end() <= end();
    }
    // This is a finished read that holds all of b.
    [[nodiscard]] bool answers(const FileRequest& b) const
    {
        return encompasses(&b) && status() == COMPLETE && is_read_;
    }
    // Length of a when it reaches as far as b does.
    [[nodiscard]] static std::uint32_t FurthestLength(const FileRequest* a, const FileRequest* b);

    // --- status

    [[nodiscard]] Status status() const
    {
        return static_cast<Status>(state_.load(std::memory_order_acquire) & statusMask);
    }
    void setStatus(Status status);
    // Not yet ended in any way.
    [[nodiscard]] bool isPending() const;

    // Around the platform call that issues the transfer: in flight from before the call; refused takes it
    // back.
    void enterFlight() { state_.fetch_or(IN_FLIGHT, std::memory_order_acq_rel); }
    void refused() { state_.fetch_and(~IN_FLIGHT, std::memory_order_acq_rel); }
    // Begins the end: waits out a merge and closes the list of callers. False when the request was
    // destroyed before; its callers are then gone.
    bool beginFinish();
    // Publishes the final status; the last access of the thread that ends the request. Deletes it when it
    // was destroyed meanwhile.
    static void finish(FileRequest* request, Status finalStatus);
    // Frees itself at the end of its transfer; for requests that no list ever holds.
    void markOrphan() { state_.fetch_or(ORPHAN, std::memory_order_acq_rel); }

    [[nodiscard]] bool isRead() const { return is_read_; }
    [[nodiscard]] bool isSynchronous() const { return synchronous_; }
    [[nodiscard]] bool isCoalescable() const { return coalescable_; }
    [[nodiscard]] FsysFile* file() const { return file_; }
    [[nodiscard]] const Qz::Ptr<iThreadEvent>& syncEvent() const { return syncEvent_; }

    // Drops the request's memory and that of the writes that were merged into it.
    void releaseBuffers();
    // File position at which the transfer starts.
    [[nodiscard]] std::uint64_t transferPosition() const
    {
        return position_ + static_cast<std::uint64_t>(static_cast<std::int64_t>(sectorOffset_));
    }

private:
    friend class FsysFile;
    friend class IOCompletionReceiver;
    friend class LeftRequests;
    friend struct FileRequestTestAccess;

    static constexpr std::uint32_t statusMask = 0xFF;
    static constexpr std::uint32_t IN_FLIGHT = 0x100;
    static constexpr std::uint32_t MERGING = 0x200;
    static constexpr std::uint32_t FINISHING = 0x400;
    static constexpr std::uint32_t ORPHAN = 0x800;

    class Merging;

    // b begins inside a, right behind it, or behind a hole that a merge bridges.
    [[nodiscard]] static bool reaches(const FileRequest& a, const FileRequest& b)
    {
        return a.position_ <= b.position_ && b.position_ <= a.end() + (a.is_read_ ? CoalesceGap_ : 0);
    }
    // Holds off the completion. False when the request is neither queued nor started, or ends already.
    bool beginMerge();
    void endMerge() { state_.fetch_and(~MERGING, std::memory_order_release); }
    // Grows over the bytes of b where that is allowed; offset is then where they begin in this request.
    bool absorb(const FileRequest& b, std::uint32_t& offset);
    void adoptCallers(FileRequest& other, std::uint32_t offset);
    void deliver(CompletionInfo& caller);
    [[nodiscard]] std::uint64_t end() const { return position_ + ByteCount_; }

    const bool is_read_;
    const bool synchronous_;
    const bool coalescable_;
    std::uint16_t startRetries_ = 0;  // starts that found no buffer
    std::atomic<std::uint32_t> state_{NEW};
    std::uint64_t position_;
    std::uint32_t ByteCount_;        // never 0 in a well-formed request
    std::int32_t sectorOffset_ = 0;  // of the transfer's start from position_
    std::uint32_t sectorExtra_ = 0;  // added to ByteCount_ for whole sectors; wraps for staged writes
    std::uint32_t bytesDone_ = 0;    // as the platform reported
    std::uint32_t transferLength_ = 0;
    Qz::Ptr<iMemHolder> buffer_;  // the caller's data of a write, a block of the pool for a read
    std::vector<Qz::Ptr<iMemHolder>> mergedBuffers_;  // data of merged writes, alive until all is written
    Qz::Ptr<iAsyncContext> asyncContext_;
    Vector<CompletionInfo> completions_;  // in the order of arrival
    double startTimeMs_ = 0;              // when the transfer was issued
    FsysFile* const file_;
    std::uint64_t usageStamp_ = 0;
    Qz::Ptr<iThreadEvent> syncEvent_;  // synchronous requests only; stays set once set
    Qz::Ptr<SyncFileRequest> syncContext_;
    std::vector<Qz::Ptr<SyncFileRequest>> adoptedSyncContexts_;  // of the requests merged into this one
    FileRequest* nextLeft_ = nullptr;                            // of LeftRequests
};
