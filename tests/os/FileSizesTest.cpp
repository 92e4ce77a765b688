#include "os/linux/FileSizes.h"

#include "common/TemporaryFolder.h"
#include "os/linux/NameOrder.h"
#include "os/linux/ScopedFd.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>

using namespace os;

namespace {

std::string nameOf(std::size_t number) { return "f" + std::to_string(number); }

NameBatch batchOf(const std::vector<std::string>& names)
{
    NameBatch batch;
    for (const std::string& name : names) {
        batch.names.push_back(
            {static_cast<std::uint32_t>(batch.text.size()), static_cast<std::uint32_t>(name.size())});
        batch.text.append(name.c_str(), name.size() + 1);
    }
    return batch;
}

// A folder of files whose sizes are their numbers.
class FileSizesTest : public ::testing::Test
{
protected:
    void makeFiles(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i) {
            folder_.file(nameOf(i));
            std::filesystem::resize_file(folder_ / nameOf(i), i);
        }
        open_ = ScopedFd(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }

    static void addAll(FileSizes& sizes, std::size_t count, std::size_t perBatch)
    {
        for (std::size_t first = 0; first < count; first += perBatch) {
            std::vector<std::string> names;
            for (std::size_t i = first; i < std::min(count, first + perBatch); ++i)
                names.push_back(nameOf(i));
            sizes.add(batchOf(names));
        }
    }

    static void expectAllAsked(FileSizes& sizes, std::size_t count)
    {
        std::size_t number = 0;
        for (const NameBatch& batch : sizes.batches())
            for (const NameBatch::Name& name : batch.names)
                ASSERT_EQ(name.size, number++);
        EXPECT_EQ(number, count);
    }

    TemporaryFolder folder_;
    ScopedFd open_;
    Progress progress_;
};

// No thread can be started while one of these lives: its stack would not fit into the address space.
class NoNewThreads
{
public:
    NoNewThreads()
    {
        ::pthread_getattr_default_np(&before_);
        pthread_attr_t huge;
        ::pthread_attr_init(&huge);
        ::pthread_attr_setstacksize(&huge, std::size_t{1} << 50);
        refused_ = ::pthread_setattr_default_np(&huge) == 0;
        ::pthread_attr_destroy(&huge);
    }
    ~NoNewThreads()
    {
        ::pthread_setattr_default_np(&before_);
        ::pthread_attr_destroy(&before_);
    }
    NoNewThreads(const NoNewThreads&) = delete;
    NoNewThreads& operator=(const NoNewThreads&) = delete;

    [[nodiscard]] bool areRefused() const { return refused_; }

private:
    pthread_attr_t before_{};
    bool refused_ = false;
};

}  // namespace

TEST_F(FileSizesTest, ASmallFolderStartsNoThread)
{
    makeFiles(FileSizes::namesAloneMax);
    FileSizes sizes(open_.get(), progress_);
    addAll(sizes, FileSizes::namesAloneMax, 100);
    EXPECT_FALSE(sizes.hasHelper());
    sizes.finish();
    expectAllAsked(sizes, FileSizes::namesAloneMax);
}

TEST_F(FileSizesTest, ALargeFolderIsSharedWithAHelper)
{
    makeFiles(2000);
    FileSizes sizes(open_.get(), progress_);
    addAll(sizes, 2000, 7);
    EXPECT_TRUE(sizes.hasHelper());
    sizes.finish();
    expectAllAsked(sizes, 2000);
    EXPECT_EQ(progress_.steps(), 2000u);
}

TEST_F(FileSizesTest, TheHelperStartsBeforeTheFolderIsReadToItsEnd)
{
    makeFiles(300);
    FileSizes sizes(open_.get(), progress_);
    addAll(sizes, 300, 100);
    // The caller asks for nothing: whatever steps is the helper.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (progress_.steps() < 300 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_EQ(progress_.steps(), 300u);
    sizes.finish();
    expectAllAsked(sizes, 300);
}

TEST_F(FileSizesTest, WhereNoThreadCanBeStartedTheCallerAsksAlone)
{
    makeFiles(1000);
    const NoNewThreads none;
    ASSERT_TRUE(none.areRefused());
    FileSizes sizes(open_.get(), progress_);
    addAll(sizes, 1000, 256);
    EXPECT_FALSE(sizes.hasHelper());
    sizes.finish();
    expectAllAsked(sizes, 1000);
}

TEST_F(FileSizesTest, NamesThatHaveVanishedAreNoFiles)
{
    makeFiles(2);
    FileSizes sizes(open_.get(), progress_);
    sizes.add(batchOf({"f1", "gone", "f0"}));
    sizes.finish();
    const NameBatch& batch = sizes.batches().front();
    EXPECT_EQ(batch.names[0].size, 1u);
    EXPECT_EQ(batch.names[1].size, NameBatch::noFile);
    EXPECT_EQ(batch.names[2].size, 0u);
}

TEST_F(FileSizesTest, GivingUpLeavesNoHelperBehind)
{
    makeFiles(1000);
    {
        FileSizes sizes(open_.get(), progress_);
        addAll(sizes, 1000, 10);
        ASSERT_TRUE(sizes.hasHelper());
    }
    const unsigned long steps = progress_.steps();
    std::this_thread::yield();
    EXPECT_EQ(progress_.steps(), steps);
}

TEST(NameOrder, IsThatOfTheBytes)
{
    // Some are the beginning of others, some are told apart by their last byte alone.
    std::vector<std::string> names{"same.a1234567b", "same.a1234567a", "same.", "same.a",   "same.\xff",
                                   "same.a1234567",  "same.B",         "same",  "same.\x01"};
    std::deque<NameBatch> batches;
    batches.push_back(batchOf({names.begin(), names.begin() + 4}));
    batches.push_back(batchOf({names.begin() + 4, names.end()}));
    for (NameBatch& batch : batches)
        for (NameBatch::Name& name : batch.names)
            name.size = name.length;
    FolderListing files;
    NameOrder(batches).deliver(files);
    std::sort(names.begin(), names.end());
    ASSERT_EQ(files.size(), names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(toUTF8(files[i].name).str(), names[i]);
        EXPECT_EQ(files[i].size, names[i].size());
    }
}

TEST(NameOrder, LeavesOutWhatIsNoFile)
{
    std::deque<NameBatch> batches;
    batches.push_back(batchOf({"b", "a", "c"}));
    batches[0].names[0].size = 5;
    FolderListing files;
    NameOrder(batches).deliver(files);
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(files[0].name, L"b");
}

TEST(NameOrder, OfNothingIsNothing)
{
    FolderListing files;
    NameOrder(std::deque<NameBatch>()).deliver(files);
    EXPECT_TRUE(files.empty());
}
