#pragma once

#include "fsys/EngineState.h"
#include "fsys/FileRequest.h"
#include "fsys/Fsys.h"
#include "fsys/FsysBuf.h"
#include "fsys/FsysEntry.h"
#include "fsys/FsysFile.h"
#include "fsys/FsysPoll.h"
#include "fsys/IOCompletionReceiver.h"
#include "os/testing/FakeOS.h"
#include "support/Log.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// EngineFixture: the I/O engine on the fake platform.
//
// Time is virtual, threads do not run and transfers are held: a test plays the poll threads with readPass and
// writePass and the device with os.transfers().

// Looks behind the engine's classes.
struct FsysTestAccess
{
    static Vector<FsysFile*>& readFiles() { return theFsys.load()->readFiles; }
    static Vector<FsysFile*>& writeFiles() { return theFsys.load()->writeFiles; }
    static CriticalSection& readFilesLock() { return theFsys.load()->readFilesLock; }
    static CriticalSection& writeFilesLock() { return theFsys.load()->writeFilesLock; }
    static FsysPoll& readPoll() { return *theFsys.load()->readPoll_; }
    static FsysPoll& writePoll() { return *theFsys.load()->writePoll_; }
    static IOCompletionReceiver* receiver() { return theFsys.load()->completionReceiver.get(); }
};

struct FsysFileTestAccess
{
    static Vector<FileRequest*>& reads(FsysFile& file) { return *file.readRequests_; }
    static Vector<FileRequest*>& writes(FsysFile& file) { return *file.writeRequests_; }
    static CriticalSection& lock(FsysFile& file) { return *file.lock_; }
    static std::atomic<std::uint64_t>& position(FsysFile& file) { return file.position_; }
    static std::uint64_t& cacheStart(FsysFile& file) { return file.writeCacheStart_; }
    static unsigned gathered(const FsysFile& file) { return file.gathered(); }
    static const Qz::Ptr<iMemHolder>& cache(const FsysFile& file) { return file.writeCache_; }
    static Qz::Ptr<iMemHolder>& segment(FsysFile& file) { return file.writeSegment_; }
    static std::atomic<std::uint32_t>& segmentFill(FsysFile& file) { return file.writeSegmentFill_; }
    static std::uint32_t deferred(const FsysFile& file) { return file.deferredCount_; }
    static void setDeferred(FsysFile& file, std::uint32_t count) { file.deferredCount_ = count; }
    static bool closing(const FsysFile& file) { return file.closing_; }
    static void setClosing(FsysFile& file, bool closing) { file.closing_ = closing; }
    static void setReadOutstanding(FsysFile& file, std::uint32_t bytes)
    {
        file.readBytesOutstanding_ = bytes;
    }
    static void setWriteOutstanding(FsysFile& file, std::uint32_t bytes)
    {
        file.writeBytesOutstanding_ = bytes;
    }
    static iDiskDrive::eType type(const FsysFile& file) { return file.type_; }
    static const Qz::Ptr<iFile>& syncHandle(const FsysFile& file) { return file.syncHandle_; }
    static const Qz::Ptr<iFile>& asyncHandle(const FsysFile& file) { return file.asyncHandle_; }
    static const Qz::Ptr<iThreadEvent>& drained(const FsysFile& file) { return file.writesDrained_; }
    static bool hasLists(const FsysFile& file)
    {
        return file.readRequests_ && file.writeRequests_ && file.lock_;
    }
};

struct FileRequestTestAccess
{
    static std::int32_t sectorOffset(const FileRequest& r) { return r.sectorOffset_; }
    static std::uint32_t sectorExtra(const FileRequest& r) { return r.sectorExtra_; }
    static std::uint64_t position(const FileRequest& r) { return r.position_; }
    static std::uint32_t byteCount(const FileRequest& r) { return r.ByteCount_; }
    static std::uint32_t transferLength(const FileRequest& r) { return r.transferLength_; }
    static std::uint32_t& bytesDone(FileRequest& r) { return r.bytesDone_; }
    static double& startTimeMs(FileRequest& r) { return r.startTimeMs_; }
    static std::uint64_t& usageStamp(FileRequest& r) { return r.usageStamp_; }
    static std::uint16_t startRetries(const FileRequest& r) { return r.startRetries_; }
    static Qz::Ptr<iMemHolder>& buffer(FileRequest& r) { return r.buffer_; }
    static Vector<CompletionInfo>& completions(FileRequest& r) { return r.completions_; }
    static bool hasContext(const FileRequest& r) { return static_cast<bool>(r.asyncContext_); }
};

// Everything that goes to the log, instead of the log.
class LogCapture : public iLogSink
{
public:
    struct Debug
    {
        int column;
        int row;
        std::string text;
    };

    LogCapture() : before_(setLogSink(this)) {}
    ~LogCapture() override { setLogSink(before_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void log(const char* text) override { add(logs_, text); }
    void logBoth(const char* text) override { add(both_, text); }
    void splat(const char* text, int level) override
    {
        const std::lock_guard<std::mutex> hold(guard_);
        splats_.emplace_back(text, level);
    }
    void debugText(int column, int row, const char* text) override
    {
        const std::lock_guard<std::mutex> hold(guard_);
        debug_.push_back({column, row, text});
    }

    [[nodiscard]] std::vector<std::string> logs() const { return copy(logs_); }
    [[nodiscard]] std::vector<std::string> both() const { return copy(both_); }
    [[nodiscard]] std::vector<std::pair<std::string, int>> splats() const { return copy(splats_); }
    [[nodiscard]] std::vector<Debug> debug() const { return copy(debug_); }
    void clear()
    {
        const std::lock_guard<std::mutex> hold(guard_);
        logs_.clear();
        both_.clear();
        splats_.clear();
        debug_.clear();
    }

private:
    void add(std::vector<std::string>& where, const char* text)
    {
        const std::lock_guard<std::mutex> hold(guard_);
        where.emplace_back(text);
    }
    template <class T>
    std::vector<T> copy(const std::vector<T>& from) const
    {
        const std::lock_guard<std::mutex> hold(guard_);
        return from;
    }

    iLogSink* before_;
    mutable std::mutex guard_;
    std::vector<std::string> logs_;
    std::vector<std::string> both_;
    std::vector<std::pair<std::string, int>> splats_;
    std::vector<Debug> debug_;
};

// A completion function's calls. Pass Calls::record as the function and calls.context() as the context.
class Calls
{
public:
    struct Call
    {
        RequestStatus status;
        bool hasData;
        std::string bytes;  // of getUsed, for data that tells its size
        unsigned size;      // getSize
        Qz::Ptr<iMemHolder> data;
        std::thread::id thread;
        std::string threadName;
        unsigned error;  // FsysGetLastError at the time of the call
    };

    Calls() : context_(new Context) {}

    [[nodiscard]] Qz::Ptr<iObject>& context()
    {
        asObject_ = context_;
        return asObject_;
    }
    [[nodiscard]] std::vector<Call> all() const
    {
        const std::lock_guard<std::mutex> hold(context_->guard);
        return context_->calls;
    }
    [[nodiscard]] std::size_t count() const { return all().size(); }
    void forget()
    {
        const std::lock_guard<std::mutex> hold(context_->guard);
        context_->calls.clear();
    }
    [[nodiscard]] Call last() const { return all().back(); }
    // References to the context beside those that this object holds.
    [[nodiscard]] unsigned references() const { return context_->refCount() - (asObject_ ? 2 : 1); }

    static void record(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
    {
        auto& self = dynamic_cast<Context&>(*context);
        const unsigned size = data && data->getBuffer() ? data->getSize() : 0;
        Call call{status,
                  static_cast<bool>(data),
                  size != 0 ? std::string(reinterpret_cast<const char*>(data->getBuffer()), size)
                            : std::string(),
                  size,
                  data,
                  std::this_thread::get_id(),
                  fake::currentThreadName(),
                  FsysGetLastError()};
        const std::lock_guard<std::mutex> hold(self.guard);
        self.calls.push_back(std::move(call));
    }

private:
    struct Context : public iObject
    {
        std::mutex guard;
        std::vector<Call> calls;
    };
    Qz::Ptr<Context> context_;
    Qz::Ptr<iObject> asObject_;
};

// Data of a write; tells when it was destroyed.
class TestData : public iMemHolder
{
public:
    explicit TestData(std::string bytes, bool* destroyed = nullptr)
        : bytes_(std::move(bytes)), destroyed_(destroyed)
    {}
    ~TestData() override
    {
        if (destroyed_)
            *destroyed_ = true;
    }
    [[nodiscard]] unsigned char* getBuffer() const override
    {
        return reinterpret_cast<unsigned char*>(const_cast<char*>(bytes_.data()));
    }
    [[nodiscard]] unsigned getSize() const override { return static_cast<unsigned>(bytes_.size()); }
    [[nodiscard]] unsigned getUsed() const override { return getSize(); }
    void setUsed(unsigned /*bytes*/) override {}

private:
    std::string bytes_;
    bool* destroyed_;
};

// A window on memory that several writes share, so that they adjoin.
class TestWindow : public iMemHolder
{
public:
    TestWindow(unsigned char* start, unsigned size, bool* destroyed = nullptr)
        : start_(start), size_(size), destroyed_(destroyed)
    {}
    ~TestWindow() override
    {
        if (destroyed_)
            *destroyed_ = true;
    }
    [[nodiscard]] unsigned char* getBuffer() const override { return start_; }
    [[nodiscard]] unsigned getSize() const override { return size_; }
    [[nodiscard]] unsigned getUsed() const override { return size_; }
    void setUsed(unsigned /*bytes*/) override {}

private:
    unsigned char* start_;
    unsigned size_;
    bool* destroyed_;
};

// Bytes that differ from place to place, so that a shifted answer shows.
inline std::string pattern(std::size_t size, unsigned seed = 1)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 31 + i / 251 + seed * 97) & 0xFF);
    return bytes;
}

class EngineTest : public ::testing::Test
{
protected:
    EngineTest() : installed_(os)
    {
        os.files().addDrive(L"/m/");
        FsysInitialize();
        logged.clear();  // of what is told once per process
    }
    // Closes what the test left open (its waits take virtual time only) and ends the engine.
    ~EngineTest() override
    {
        while (theFsys.load() && !FsysTestAccess::readFiles().empty())
            FsysClose(FsysTestAccess::readFiles()[0], nullptr);
        while (theFsys.load() && !FsysTestAccess::writeFiles().empty())
            FsysClose(FsysTestAccess::writeFiles()[0], nullptr);
        FsysUninitialize(Shutdown::eNormalExit);
    }

    FsysFile* open(const wchar_t* path, unsigned flags = fsysOpenRead, unsigned coalesceLength = 65536)
    {
        FsysFile* file = nullptr;
        EXPECT_EQ(1U, FsysOpen(&file, path, coalesceLength, flags, nullptr));
        return file;
    }
    FsysFile* openForReading(const std::string& contents, unsigned coalesceLength = 65536)
    {
        os.files().addFile(L"/m/Material/read.mov", contents);
        return open(L"/m/Material/read.mov", fsysOpenRead, coalesceLength);
    }
    FsysFile* openForWriting(const std::string& contents = "", unsigned coalesceLength = 65536)
    {
        os.files().addFile(L"/m/Material/write.mov", contents);
        return open(L"/m/Material/write.mov", fsysOpenWrite, coalesceLength);
    }
    [[nodiscard]] std::string written() { return os.files().contents(L"/m/Material/write.mov"); }

    static unsigned readPass() { return FsysTestAccess::readPoll().Polltasks(); }
    static unsigned writePass() { return FsysTestAccess::writePoll().Polltasks(); }
    // Waiting callers are served: passes run and held transfers complete whenever the test's thread waits
    // for the end of a request.
    void serveWaiters()
    {
        os.clock().setIdleHandler([this] {
            const unsigned before = os.transfers().accepted();
            readPass();
            writePass();
            return os.transfers().completeAll() != 0 || os.transfers().accepted() != before;
        });
    }

    FakeOS os;
    LogCapture logged;

private:
    ScopedOS installed_;
};
