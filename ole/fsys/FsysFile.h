#pragma once

#include "Qz/LightweightString.h"
#include "Qz/Ptr.h"
#include "Qz/Vector.h"
#include "Qz/iMemHolder.h"
#include "fsys/CompletionFunction.h"
#include "fsys/Export.h"
#include "os/CompletionPortHandler.h"
#include "os/CriticalSection.h"
#include "os/iDiskDrive.h"
#include "os/iFile.h"
#include "os/iThreadEvent.h"

#include <atomic>
#include <cstdint>

class FileRequest;
class FsysPoll;

// How FsysFile::Seek reads its offset. Any value that is not eSeekAbsolute means relative.
enum SEEK_TYPE : int {
    eSeekRelative = 0,  // from the position
    eSeekAbsolute = 1,  // from the start of the file
};

// FsysFile: one open file of the I/O engine. Made by FsysOpen, ended by FsysClose.
//
// Two ways:   Read, Write and Seek are synchronous, at the file's position. DirectRead and DirectWrite are
//             asynchronous: requests are queued, merged, started by a polling thread and answered through
//             completion functions.
// Links:      a media file may be a link file that points at the real one. The asynchronous way follows the
//             link; Read, Write and the size that a file opened for writing starts at are those of the
//             link file itself.
// Threads:    DirectRead from any threads at once. Read, Write, Seek and DirectWrite work at the position and
//             with the write cache and are for one thread at a time; a DirectRead of another thread
//             meanwhile moves the position under them.
// Results:    1 is success.
// Units:      bytes.
class FSYS_API FsysFile
{
public:
    // Names the file; LowLevelOpen opens it. Without a path the object can only be destroyed.
    FsysFile(const LightweightString<wchar_t>& path, FsysPoll* poll, unsigned sectorSize,
             iDiskDrive::eType type, unsigned flags, unsigned coalesceLength);
    // Wraps a handle that is open already, for synchronous use only.
    FsysFile(const Qz::Ptr<iFile>& handle, FsysPoll* poll, unsigned sectorSize, iDiskDrive::eType type,
             unsigned flags, unsigned coalesceLength);
    // Drops finished requests. REQUIRES: nothing of it is under way.
    virtual ~FsysFile();
    FsysFile(const FsysFile&) = delete;
    FsysFile& operator=(const FsysFile&) = delete;

    // --- handles; a variant file kind replaces these

    // Opens both handles: 1, or the platform's error code; the object is then only to be destroyed.
    virtual unsigned LowLevelOpen(const LightweightString<wchar_t>& path, unsigned flags,
                                  bool onNetworkDrive);
    // Releases both handles; 1.
    virtual unsigned LowLevelClose();
    // Each issues a request's transfer: 1 when the platform took it, 0 when not. After 1 the request may be
    // finished and gone.
    virtual unsigned LowLevelAsyncRead(FileRequest* request);
    virtual unsigned LowLevelAsyncWrite(FileRequest* request);
    // Reads at the file's position, which stays: 1 or 0.
    virtual unsigned LowLevelRead(void* buffer, unsigned bytes);
    // Writes at the file's position, which stays: 1 or the platform's error code.
    virtual unsigned LowLevelWrite(const void* buffer, unsigned bytes);
    // 1; info is untouched when the platform does not know.
    virtual unsigned LowLevelGetInfo(FILE_INFO* info);
    // Attaches the asynchronous handle, where there is one, to port; the port's answer.
    virtual bool SetUpIoCompletionNotify(CompletionPortHandler* port);

    // --- synchronous

    // Reads at the position and advances it by bytes: 1, or 0 with the position unchanged. Near the end of
    // the file fewer bytes than asked for may have been read with the result 1; behind it the result is 0.
    // Does not see what is still gathered in the write cache.
    unsigned Read(void* buffer, unsigned bytes);
    // Writes what is gathered, at the place where it was gathered, then buffer right behind it: 1, or the
    // platform's error code with the position before the failed bytes. A failure to write the gathered bytes
    // is not reported.
    unsigned Write(const void* buffer, unsigned bytes);
    // Writes what is gathered, then sets the position (eSeekAbsolute) or moves it; 1. Nothing is checked
    // against the size of the file.
    unsigned Seek(long offset, SEEK_TYPE type);

    // --- asynchronous

    // Reads bytes at position. fn gets context and the data; it may run before this returns, when an
    // earlier read of the file holds the range. Where the file ends inside the range the data is cut off
    // by zero bytes. A range behind the end is an error with the last error 0, but for a position inside the
    // sector in which the file ends, when it is not that sector's first byte: there the read succeeds with
    // zero bytes. A finished read keeps answering with what the file held when it was read. REQUIRES:
    // bytes > 0 (a read of nothing never completes). 1: accepted, fn will be called once; the file's position
    // has advanced by bytes all the same. 0: refused: the file is closing, or its list is full of unfinished
    // reads (FsysGetLastError is 8). 8: refused: more than twice "ForcePollLimit" deferred requests wait.
    // After a refusal fn is not called; ask again after a completion. A read whose transfer failed keeps its
    // place in the list for good: after 41 of them (one more than "MaxRequestListSize") every read is
    // refused, and only a close helps. A file whose cache is disabled accepts reads and never completes
    // them.
    unsigned DirectRead(long position, unsigned int bytes, bool coalescable, FsysCompletionFunction fn,
                        Qz::Ptr<iObject>& context);
    // Writes all of data (getSize bytes) and advances the position over what went to the disk.
    // Directly, as a request at the position: when position and size are multiples of the sector size and
    // nothing is gathered. With network write caching on, the drive must be no network drive either, and
    // "AlwaysUseWriteCache" not 1, which gathers on every drive. data must stay unchanged until fn has been
    // called.
    // Otherwise data is copied to the write cache and fn called at once; what is gathered waits there for
    // an overflow, Write, Seek or the close. Beware of where it goes:
    //   - An overflow (more than 131072 bytes gathered) writes whole sectors at the file's position.
    //   - Write, Seek and the close put it where the last direct write or overflow ended, which in a freshly
    //     opened file is offset 512 whatever the file's size. Write and Seek do not move that place, so
    //     what is gathered next overwrites it.
    //   - The close writes it twice, the second time right behind the first.
    // A caller that wants its bytes where it says writes whole sectors, and the rest with Write.
    // The write that overflows the cache returns when whole sectors have been written; fn then gets the
    // write cache itself as data, and on files without asynchronous support it is not called.
    // synchronous: a direct write returns after its completion, with 1 even when the write failed, which
    // only fn and FsysGetLastError tell. Its start waits for the polling thread's timer. Without effect on
    // data that is gathered.
    // 1: accepted. 0: the file is closing or not open for writing, its list stayed full for 200 retries of
    // 20 ms, or data does not fit the write cache (524288 bytes, nothing is copied then). Another value: the
    // platform's error code of a synchronous overflow. Unless the result is 1, fn is not called. An overflow
    // that was refused or failed has copied data all the same, and it stays gathered: whoever repeats the
    // call stores it twice. Writes whose transfers failed use up the list as reads do, and only a close
    // helps.
    // REQUIRES: data holds at least 1 byte.
    unsigned DirectWrite(Qz::Ptr<iMemHolder>& data, bool coalescable, FsysCompletionFunction fn,
                         Qz::Ptr<iObject>& context, bool synchronous);

    // --- queries

    // Bytes per sector of the file's drive; 512 when not known.
    [[nodiscard]] unsigned GetSectorSize() const;
    // From now on reads are neither answered nor queued; their completion functions never run. 1.
    unsigned DisableCache();
    // True when DirectWrite can go to the disk asynchronously.
    [[nodiscard]] bool isASyncIOSupported() const;

    // --- request lists, for the engine

    // Each lists request. 1: queued or merged, the file owns it. 0: refused, the caller keeps it.
    FSYS_LOCAL unsigned QueueReadRequest(FileRequest* request);
    FSYS_LOCAL unsigned QueueWriteRequest(FileRequest* request);
    // 1: answered from a finished read, the request is gone. 0: the caller keeps it.
    FSYS_LOCAL unsigned SatisfyFromCache(FileRequest* request);
    // One pass: starts the queued requests of list. 0 when one could not be started.
    FSYS_LOCAL unsigned StartRequests(Vector<FileRequest*>* list);
    // Not 0: there is room. 8: so many requests are deferred that the list is not looked at.
    FSYS_LOCAL unsigned CheckRequestListSize(Vector<FileRequest*>* list);
    // Drops the last complete request of the list, unless it stands at its head.
    FSYS_LOCAL void removeOldestRequest(Vector<FileRequest*>* list);

    // --- write cache and drain, for the engine

    // Puts the position at the end of the file, for writes append; false when that cannot be told.
    [[nodiscard]] FSYS_LOCAL bool goToEnd();
    // Takes the memory that writes are gathered in; nothing is gathered then.
    FSYS_LOCAL void AllocWriteCache();
    // Gives it back, with what is gathered.
    FSYS_LOCAL void FreeWriteCache();
    // Writes out what is gathered, twice, and waits up to 4 seconds for outstanding writes.
    FSYS_LOCAL void WaitForDrain();
    // Sets or resets the "writes drained" event by the number of outstanding bytes.
    FSYS_LOCAL void CheckOutstandingWrites();
    // Writes the partly filled write segment as one sector; result of the issue.
    FSYS_LOCAL unsigned SendWriteSegBuffer();
    // Destroys all read requests; 1.
    FSYS_LOCAL unsigned ClearMemoryRefs();

    // Logs that bytes which somebody counts as written are not.
    FSYS_LOCAL void tellLoss(std::uint64_t position, unsigned bytes, unsigned code) const;

    // --- plain accessors, for the engine

    // The path that it was made with.
    [[nodiscard]] const LightweightString<wchar_t>& path() const { return path_; }
    // Bytes to which a queued request may grow by merging.
    [[nodiscard]] std::uint32_t coalesceLength() const
    {
        return coalesceLength_.load(std::memory_order_relaxed);
    }
    // See FsysSetCoalesceLength.
    void setCoalesceLength(std::uint32_t bytes) { coalesceLength_.store(bytes, std::memory_order_relaxed); }
    // What SendWriteSegBuffer writes. No operation of the engine fills it in.
    [[nodiscard]] const Qz::Ptr<iMemHolder>& writeSegment() const { return writeSegment_; }
    // Bytes of it that carry data.
    void setWriteSegmentFill(std::uint32_t bytes) { writeSegmentFill_ = bytes; }
    // Each tells the bytes of this file's requests of one direction that have not ended.
    [[nodiscard]] std::uint32_t readBytesOutstanding() const { return readBytesOutstanding_; }
    [[nodiscard]] std::uint32_t writeBytesOutstanding() const { return writeBytesOutstanding_; }
    // Each changes the file's and the engine's counters of one direction together.
    FSYS_LOCAL void addOutstanding(bool isRead, std::uint32_t bytes);
    FSYS_LOCAL void subtractOutstanding(bool isRead, std::uint32_t bytes);

    // The object lives as long as it is open or a transfer of it is in flight: each holds one count, and
    // whoever gives back the last one deletes it.
    void holdForTransfer() { holds_.fetch_add(1, std::memory_order_relaxed); }
    // Gives back one count of file.
    FSYS_LOCAL static void release(FsysFile* file);
    // Keeps the object while an operation waits: another thread may close the file meanwhile.
    class FSYS_LOCAL Hold
    {
    public:
        // Takes one count of file.
        explicit Hold(FsysFile& file) : file_(file) { file_.holdForTransfer(); }
        // Gives it back.
        ~Hold() { release(&file_); }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        FsysFile& file_;
    };

private:
    friend class Fsys;
    friend class FsysPoll;
    friend struct FsysFileTestAccess;

    FSYS_LOCAL void init();
    [[nodiscard]] FSYS_LOCAL bool isForWriting() const;
    FSYS_LOCAL unsigned issue(FileRequest* request, unsigned char* data, bool reads);
    FSYS_LOCAL void kick();
    // Counts a request that does not kick by itself; true when so many wait that a kick is due. REQUIRES: the
    // lock is held, so that no pass forgets the count of what it has not started.
    [[nodiscard]] FSYS_LOCAL bool countDeferred();
    [[nodiscard]] FSYS_LOCAL bool hasTooManyDeferred() const;
    [[nodiscard]] FSYS_LOCAL static bool hasRoom(const Vector<FileRequest*>& list);
    // The first part of DirectRead: makes room in the list, and lists the read or merges it unless it asks
    // for more than that (nothing at all, a finished read's bytes, a closing file, a disabled cache). kicks
    // is set when a kick is due. REQUIRES: the lock is held.
    enum class Taken { accepted, refused, left };
    FSYS_LOCAL Taken takeRead(std::uint64_t position, unsigned bytes, bool coalescable,
                              FsysCompletionFunction fn, const Qz::Ptr<iObject>& context, bool& kicks);
    // False when a finished read has the bytes.
    FSYS_LOCAL bool listRead(std::uint64_t position, unsigned bytes, bool coalescable,
                             FsysCompletionFunction fn, const Qz::Ptr<iObject>& context);
    FSYS_LOCAL void enqueue(Vector<FileRequest*>* list, FileRequest* request);
    [[nodiscard]] FSYS_LOCAL static bool anyQueued(const Vector<FileRequest*>& list, unsigned first);
    FSYS_LOCAL void failStart(Vector<FileRequest*>* list, FileRequest* request, unsigned result);
    [[nodiscard]] FSYS_LOCAL FileRequest* findCached(const FileRequest* request) const;

    // Write cache: how much is gathered, and writing it at the place where it began.
    [[nodiscard]] FSYS_LOCAL unsigned gathered() const;
    FSYS_LOCAL void emptyCache();
    // Sets the position to where gathered bytes go and writes them there; a failure goes to the log.
    FSYS_LOCAL void writeGathered(unsigned bytes);
    [[nodiscard]] FSYS_LOCAL unsigned checkThatIsNoLink() const;
    FSYS_LOCAL unsigned queueWithRetries(FileRequest* request);
    FSYS_LOCAL unsigned writeDirectly(Qz::Ptr<iMemHolder>& data, bool coalescable, FsysCompletionFunction fn,
                                      Qz::Ptr<iObject>& context, bool synchronous);
    FSYS_LOCAL unsigned writeThroughCache(Qz::Ptr<iMemHolder>& data, bool coalescable,
                                          FsysCompletionFunction fn, Qz::Ptr<iObject>& context,
                                          bool flushAsync);
    FSYS_LOCAL unsigned flushWholeSectors(unsigned bytes, bool coalescable, FsysCompletionFunction fn,
                                          const Qz::Ptr<iObject>& context, bool flushAsync);

    // Closing, in the order in which Fsys::Close calls them. Once refuseRequests has returned no request is
    // added to a list any more.
    FSYS_LOCAL void refuseRequests();
    FSYS_LOCAL void waitForRequests(const Vector<FileRequest*>* list, unsigned pauseMs);
    [[nodiscard]] FSYS_LOCAL unsigned countPending(const Vector<FileRequest*>* list) const;
    FSYS_LOCAL void destroyRequests(Vector<FileRequest*>* list);
    // What the platform does not have ends unanswered; its waiters wake.
    FSYS_LOCAL void giveUpWaitingRequests();

    const iDiskDrive::eType type_;
    const std::uint32_t sectorSize_;
    const Qz::Ptr<iThreadEvent> kick_;  // wakes the poll thread that serves this file; may outlive it
    Qz::Ptr<iFile> asyncHandle_;        // on the link's target; unbuffered, but for reads from network drives
    Qz::Ptr<iFile> syncHandle_;         // on the path as given
    LightweightString<wchar_t> path_;
    // Null only in an object that was made without a path.
    Vector<FileRequest*>* readRequests_ = nullptr;
    Vector<FileRequest*>* writeRequests_ = nullptr;
    CriticalSection* lock_ = nullptr;  // guards both lists and the queued requests in them
    std::atomic<bool> closing_{false};
    Qz::Ptr<iThreadEvent> writesDrained_;
    std::atomic<std::uint32_t> deferredCount_{0};  // queued without a kick since the last pass
    unsigned startedInPass_ = 0;                   // requests of the last pass; for the poll thread
    std::atomic<std::uint64_t> position_{0};       // reads on several threads advance it
    Qz::Ptr<iMemHolder> writeSegment_;             // no operation of the engine fills it in
    std::atomic<std::uint32_t> writeSegmentFill_{0};
    std::atomic<bool> cacheDisabled_{false};
    Qz::Ptr<iMemHolder> writeCache_;
    unsigned char* writeCacheFill_ = nullptr;  // next free byte of the write cache
    // Where Write, Seek and the close put what is gathered. Deliberate: it starts at 512, wherever the file
    // ends, and moves with direct writes and overflows only, not with Write and Seek.
    std::uint64_t writeCacheStart_ = 512;
    const std::uint32_t flags_;
    std::atomic<std::uint32_t> coalesceLength_;
    std::atomic<std::uint32_t> writeBytesOutstanding_{0};
    std::atomic<std::uint32_t> readBytesOutstanding_{0};
    std::atomic<std::uint32_t> holds_{1};
};
