// The cache's lock: operations that hold it for the look-up alone let others use the cache while they ask
// the disk, and changes of several threads do not get into each other's way.

#include <functional>
#include <optional>
#include <thread>
#include <vector>

#include "fsys/SystemCache.h"
#include "os/testing/ForwardingFileManager.h"
#include "os/testing/ForwardingOS.h"

#include "CacheTest.h"

using namespace cachetest;

namespace {

using Path = LightweightString<wchar_t>;

// At every question to the disk another thread asks the cache and is waited for: whoever held the lock
// meanwhile would wait for ever.
class AskingFiles : public ForwardingFileManager
{
public:
    using ForwardingFileManager::ForwardingFileManager;

    Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                        unsigned mode) override
    {
        askCache();
        return ForwardingFileManager::open(path, access, creation, share, mode);
    }
    std::uint64_t getFileSize(const Path& path) override
    {
        askCache();
        return ForwardingFileManager::getFileSize(path);
    }
    bool fileExists(const Path& path) override
    {
        askCache();
        return ForwardingFileManager::fileExists(path);
    }

    unsigned questions = 0;

private:
    void askCache()
    {
        ++questions;
        std::thread([] { (void)SystemCache::fileExists(Cookie(CookieTypeVision, 1, 0)); }).join();
    }
};

class SystemCacheLocks : public CacheTest
{
protected:
    SystemCacheLocks()
    {
        forwarding.use(files);
        installedForwarding.emplace(forwarding);
    }
    // Questions to the disk, all of which let others use the cache.
    unsigned questionsOf(const std::function<void()>& operation)
    {
        files.questions = 0;
        printedBy(operation);  // the lines of what is done wrong on purpose
        return files.questions;
    }

    const Cookie clip = vision(0x10C);
    AskingFiles files{os.files()};
    ForwardingOS forwarding{os};
    std::optional<ScopedOS> installedForwarding;
};

}  // namespace

TEST_F(SystemCacheLocks, FindingTheFileToOpenHoldsItForTheLookUpOnly)
{
    SystemCache::addFile(clip, linkOnDisk(clip, L".mov", L"/gone.mov"), false);
    SystemCache::addFile(clip, linkOnDisk(clip, L".proxy.540.mov", L"/gone.p.mov"), false);
    EXPECT_GE(questionsOf([&] {
                  Path file;
                  SystemCache::findFileForCookie(clip, file, DecodeFormat(eHighRes));
              }),
              4u);
}

TEST_F(SystemCacheLocks, UpdatingStatusesHoldsItForTheLookUpOnly)
{
    SystemCache::addFile(clip, linkOnDisk(clip, L".mov", L"/gone.mov"), false);
    EXPECT_GE(questionsOf([&] { SystemCache::updateStatus(clip, eHighRes | eProxy); }), 2u);
}

TEST_F(SystemCacheLocks, RealisingLinksHoldsItForTheLookUpOnly)
{
    SystemCache::addFile(clip, MediaFileInfo(named(clip, L".mov"), L"/far.mov", 512), false);
    EXPECT_GE(questionsOf([&] { SystemCache::realiseLinks(clip); }), 1u);
    EXPECT_EQ(MaterialLink::resolveLink(named(clip, L".mov")), L"/far.mov");
}

TEST_F(SystemCacheLocks, UpdatingLinksHoldsItForTheLookUpOnly)
{
    SystemCache::addFile(clip, linkOnDisk(clip, L".mov", L"/gone.mov"), false);
    EXPECT_GE(questionsOf([&] { SystemCache::updateLinks(clip, driveN); }), 1u);
    EXPECT_EQ(SystemCache::find(clip).getDrive(), driveN);
}

TEST_F(SystemCacheLocks, RemovingAProxyHoldsItForTheLookUpOnly)
{
    const MediaFileInfo link = linkOnDisk(clip, L".proxy.540.mov", L"/far/p.mov");
    SystemCache::addFile(clip, link, false);
    EXPECT_GE(questionsOf([&] { SystemCache::removeProxyFile(clip, link); }), 1u);
    EXPECT_FALSE(SystemCache::fileExists(clip));
}

TEST_F(SystemCacheLocks, RenamingAProxyHoldsItForTheLookUpOnly)
{
    SystemCache::addFile(clip, onDisk(clip, L".proxy.540.mov"), false);
    const Path old = osPath(info(clip, L".proxy.540.mov"));
    EXPECT_GE(questionsOf([&] { SystemCache::renameProxyFile(clip, old, L"/new.mov"); }), 1u);
}

// --- changes of the index by several threads at once

namespace {

class SystemCacheThreads : public CacheTest
{
protected:
    static constexpr unsigned perThread = 400;

    // Runs work on several threads; each gets a range of clips of its own.
    static void onThreads(const std::function<void(unsigned firstClip)>& work)
    {
        std::vector<std::thread> threads;
        for (unsigned t = 0; t < 3; ++t)
            threads.emplace_back(work, 1 + t * perThread);
        for (std::thread& thread : threads)
            thread.join();
    }
    static std::size_t indexed()
    {
        std::size_t count = 0;
        SystemCache::enumerate([&](const Cookie&, const FsysDirectoryEntry&) { return ++count != 0; });
        return count;
    }
};

}  // namespace

TEST_F(SystemCacheThreads, ProxiesThatManyThreadsAddAreAllFiled)
{
    onThreads([this](unsigned first) {
        for (unsigned clip = first; clip < first + perThread; ++clip)
            SystemCache::addProxyFile(vision(clip), info(vision(clip), L".proxy.540.mov"));
    });
    EXPECT_EQ(indexed(), 3 * perThread);
}

TEST_F(SystemCacheThreads, ALocationMayGoWhileOthersAreFiled)
{
    onThreads([this](unsigned first) {
        for (unsigned clip = first; clip < first + perThread; ++clip) {
            const Path path = relative(vision(clip), L".mov");
            const DriveId drive = clip % 2 == 0 ? driveM : driveN;
            SystemCache::addFile(vision(clip), MediaFileInfo(MaterialFilename(drive, path), 1000), false);
            if (clip % 8 == 0)
                SystemCache::removeMediaLocation(driveN);
        }
    });
    SystemCache::removeMediaLocation(driveN);
    EXPECT_EQ(indexed(), 3 * perThread / 2);
}
