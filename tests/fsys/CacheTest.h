#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Qz/Cookie.h"
#include "Qz/Notifier.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"
#include "os/testing/FakeOS.h"
#include "support/Log.h"

namespace cachetest {

// CapturedLog: everything that is logged, line by line.
class CapturedLog : public iLogSink
{
public:
    CapturedLog() : before_(setLogSink(this)) {}
    ~CapturedLog() override { setLogSink(before_); }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    void log(const char* text) override { log_.emplace_back(text); }
    void logBoth(const char* text) override { both_.emplace_back(text); }
    void splat(const char*, int) override {}
    void debugText(int, int, const char*) override {}

    void clear()
    {
        log_.clear();
        both_.clear();
    }
    [[nodiscard]] const std::vector<std::string>& logged() const { return log_; }
    [[nodiscard]] const std::vector<std::string>& loggedBoth() const { return both_; }

private:
    iLogSink* before_;
    std::vector<std::string> log_;
    std::vector<std::string> both_;
};

// What action prints on standard output.
template <class Action>
std::string printedBy(Action action)
{
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

// CacheTest: an empty index and two media locations, "/m" and "/n", on the fake platform.
class CacheTest : public testing::Test
{
protected:
    using Path = LightweightString<wchar_t>;

    explicit CacheTest(FakeOS::Mode mode = FakeOS::Mode::manual) : os(mode)
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
        driveM = addLocation(L"/m");
        driveN = addLocation(L"/n");
        os.log().clear();
        captured.clear();
    }
    ~CacheTest() override
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
    }

    DriveId addLocation(const Path& root)
    {
        os.files().addFolder(root + L"/Material");
        os.files().addFolder(root + L"/Sound");
        DriveId id;
        EXPECT_TRUE(DiskManager::addMaterialVolume(root, id, false));
        return id;
    }

    static Cookie vision(unsigned clip, unsigned char channel = 0)
    {
        return {CookieTypeVision, clip, channel};
    }
    static Cookie sound(unsigned clip, unsigned char channel = 1) { return {CookieTypeSound, clip, channel}; }

    // Relative path of a cookie's file, e.g. with ".mov" or ".A2.proxy.540.mov".
    static Path relative(const Cookie& cookie, const wchar_t* ending)
    {
        return L"/Material/" + cookie.asWString() + ending;
    }
    [[nodiscard]] MaterialFilename named(const Cookie& cookie, const wchar_t* ending) const
    {
        return {driveM, relative(cookie, ending)};
    }
    [[nodiscard]] MediaFileInfo info(const Cookie& cookie, const wchar_t* ending,
                                     std::uint64_t size = 10'000'000) const
    {
        return {named(cookie, ending), size};
    }
    [[nodiscard]] static Path osPath(const MediaFileInfo& file)
    {
        return file.getMaterialFilename().getOsPath();
    }
    // A record and the file on disk that it describes.
    MediaFileInfo onDisk(const Cookie& cookie, const wchar_t* ending, std::uint64_t size = 10'000'000)
    {
        const MediaFileInfo file = info(cookie, ending, size);
        os.files().addSparseFile(osPath(file), size);
        return file;
    }
    // A record and a link file on disk that points at target.
    MediaFileInfo linkOnDisk(const Cookie& cookie, const wchar_t* ending, const Path& target)
    {
        const MediaFileInfo file = info(cookie, ending, 512);
        std::string contents = toUTF8(target).str();
        contents.resize(512);
        os.files().addFile(osPath(file), contents);
        return file;
    }

    FakeOS os;
    ScopedOS installed{os};
    CapturedLog captured;
    DriveId driveM;
    DriveId driveN;
};

// EntryTest: an entry of a vision clip, outside of the index.
class EntryTest : public CacheTest
{
protected:
    const Cookie clip = vision(0xC11B);
    const Qz::Ptr<FsysDirectoryEntry> owned{new FsysDirectoryEntry};
    FsysDirectoryEntry& entry = *owned;
};

inline DecodeFormat formatOf(eProxyLevel level, unsigned height)
{
    DecodeFormat format(level);
    format.setHeight(height);
    return format;
}

// CacheListener: hears all four messages of the cache.
class CacheListener
{
public:
    struct Heard
    {
        std::string type;
        std::string text;
        Qz::Ptr<FsysDirectoryEntry> entry;
    };

    explicit CacheListener(std::function<void()> onMessage = {}) : onMessage_(std::move(onMessage))
    {
        for (const unsigned type : {SystemCache::fileAddedMsgType_, SystemCache::fileRemovedMsgType_,
                                    SystemCache::proxyAddedMsgType_, SystemCache::proxyRemovedMsgType_})
            handles_.push_back(
                SystemCache::instance().addListener(callbackFor(type), static_cast<int>(type)));
    }

    std::vector<Heard> heard;

private:
    Qz::Ptr<iCallbackBase<int, NotifyMsg>> callbackFor(unsigned type)
    {
        return new FunctionCallback<int, NotifyMsg>([this, type](const NotifyMsg& message) {
            heard.push_back({NotifyMsgTypeDictionary::instance().nameOf(type).str(), message.getText().str(),
                             Qz::dynamicCast<FsysDirectoryEntry>(message.getPayload())});
            if (onMessage_)
                onMessage_();
            return 0;
        });
    }

    std::function<void()> onMessage_;
    std::vector<Qz::Ptr<iObject>> handles_;
};

// OtherThread: a query of the cache from another thread, joined at the end.
class OtherThread
{
public:
    ~OtherThread()
    {
        if (thread_.joinable())
            thread_.join();
    }
    // Starts the query, gives it ample chance to end and tells whether it did. While the caller holds the
    // cache's lock it never does.
    bool getsThrough()
    {
        thread_ = std::thread([this] {
            tell(started_);
            (void)SystemCache::fileExists(Cookie(CookieTypeVision, 1, 0));
            tell(done_);
        });
        std::unique_lock hold(mutex_);
        changed_.wait(hold, [this] { return started_; });
        return changed_.wait_for(hold, std::chrono::milliseconds(50), [this] { return done_; });
    }

private:
    void tell(bool& state)
    {
        const std::lock_guard hold(mutex_);
        state = true;
        changed_.notify_all();
    }

    std::mutex mutex_;  // guards the states
    std::condition_variable changed_;
    bool started_ = false;
    bool done_ = false;
    std::thread thread_;
};

}  // namespace cachetest
