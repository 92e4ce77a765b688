// What the media cache takes from memory. The operator here serves the whole program of the tests; it counts
// for a thread that asked for it.

#include "fsys/SystemCache.h"

#include <cstdlib>
#include <new>
#include <utility>

#include <gtest/gtest.h>

namespace {

thread_local bool isCounting = false;
thread_local unsigned allocations = 0;

template <class Action>
unsigned allocationsOf(Action action)
{
    allocations = 0;
    isCounting = true;
    action();
    isCounting = false;
    return allocations;
}

constexpr DriveId drive('M');

Cookie clip(std::uint64_t number) { return {CookieTypeVision, number, 0}; }

class SystemCacheMemory : public testing::Test
{
protected:
    SystemCacheMemory() { SystemCache::invalidate(); }
    ~SystemCacheMemory() override { SystemCache::invalidate(); }

    static void fill(unsigned count)
    {
        for (unsigned number = 0; number < count; ++number)
            add(clip(number), clip(number).asWString() + L".mov");
    }
    static void add(const Cookie& cookie, const LightweightString<wchar_t>& name)
    {
        SystemCache::addFile(cookie, MediaFileInfo(MaterialFilename(drive, L"/Material/" + name), 1000),
                             false);
    }
};

}  // namespace

void* operator new(std::size_t bytes)
{
    allocations += isCounting ? 1 : 0;
    if (void* const memory = std::malloc(bytes == 0 ? 1 : bytes))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

TEST_F(SystemCacheMemory, AFindTakesNoMemoryButForThePathThatItReturns)
{
    fill(1000);
    MaterialFilename found;
    EXPECT_EQ(allocationsOf([&] { found = SystemCache::find(clip(500)); }), 1u);
    EXPECT_EQ(found.getPath(), L"/Material/" + clip(500).asWString() + L".mov");
}

TEST_F(SystemCacheMemory, AFindOfWhatIsNotThereTakesNone)
{
    fill(1000);
    EXPECT_EQ(allocationsOf([] { (void)SystemCache::find(clip(1000)); }), 0u);
}

TEST_F(SystemCacheMemory, QuestionsWithoutAPathInTheAnswerTakeNone)
{
    fill(1000);
    EXPECT_EQ(allocationsOf([] {
                  (void)SystemCache::fileSize(clip(500));
                  (void)SystemCache::isLinked(clip(500));
                  (void)SystemCache::findEntryForCookie(clip(500));
              }),
              0u);
}

TEST_F(SystemCacheMemory, AnOrdinaryClipTakesOneAllocationAndItsShareOfTheIndex)
{
    fill(1000);
    const auto more = [] {
        for (unsigned number = 1000; number < 2000; ++number) {
            const bool before = std::exchange(isCounting, false);
            const LightweightString<wchar_t> path = L"/Material/" + clip(number).asWString() + L".mov";
            const MediaFileInfo file(MaterialFilename(drive, path), 1000);
            isCounting = before;
            SystemCache::addFile(clip(number), file, false);
        }
    };
    EXPECT_LE(allocationsOf(more), 1100u);
    EXPECT_LE(sizeof(FsysDirectoryEntry), 88u);
}
