// Memory of transfers, the write cache, and what a close writes and waits for.

#include "EngineFixture.h"
#include "os/LastError.h"

#include <gmock/gmock.h>

#include <atomic>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class WriteCacheTest : public EngineTest
{
protected:
    static void gather(FsysFile* file, const std::string& bytes)
    {
        Calls calls;
        Qz::Ptr<iMemHolder> data(new TestData(bytes));
        EXPECT_EQ(1U, file->DirectWrite(data, false, &Calls::record, calls.context(), false));
    }
    void holdOneWrite(FsysFile* file, Calls& calls)
    {
        Qz::Ptr<iMemHolder> data(new TestData(pattern(512)));
        EXPECT_EQ(1U, file->DirectWrite(data, false, &Calls::record, calls.context(), false));
        writePass();
    }
    // "wish size type protection" of every page allocation since from.
    std::vector<std::string> allocations(std::size_t from = 0)
    {
        std::vector<std::string> texts;
        const auto records = os.pages().records();
        for (std::size_t i = from; i < records.size(); ++i)
            texts.push_back(std::to_string(reinterpret_cast<std::uintptr_t>(records[i].wish)) + " " +
                            std::to_string(records[i].size) + " " + std::to_string(records[i].type) + " " +
                            std::to_string(records[i].protection));
        return texts;
    }
};

// Remembers its low-level writes.
class WriteSpy : public FsysFile
{
public:
    using FsysFile::FsysFile;
    unsigned LowLevelWrite(const void*, unsigned bytes) override
    {
        writes.emplace_back(FsysFileTestAccess::position(*this).load(), bytes);
        return 1;
    }
    std::vector<std::pair<std::uint64_t, unsigned>> writes;
};

}  // namespace

TEST_F(WriteCacheTest, AReadsBlockIsTheRoundedTransferAnd512BytesMore)
{
    FsysFile* const file = openForReading(pattern(4096));
    Calls calls;
    EXPECT_EQ(1U, file->DirectRead(0, 1000, false, &Calls::record, calls.context()));
    readPass();
    EXPECT_THAT(allocations(), ElementsAre("0 1536 12288 4"));
    EXPECT_EQ(1536U, FileRequestTestAccess::buffer(*FsysFileTestAccess::reads(*file)[0])->getSize());
}

TEST_F(WriteCacheTest, ABlockUsesAllOfItsSizeAndACacheKeepsItsSizeToItself)
{
    const Qz::Ptr<iMemHolder> block(new MemBlock(1000));
    EXPECT_EQ(1512U, block->getSize());
    EXPECT_EQ(1512U, block->getUsed());
    block->setUsed(3);
    EXPECT_EQ(1512U, block->getUsed());
    const Qz::Ptr<iMemHolder> cache = allocateWriteCache();
    EXPECT_NE(nullptr, cache->getBuffer());
    EXPECT_EQ(0U, cache->getSize());
    EXPECT_EQ(0U, cache->getUsed());
    cache->setUsed(3);
    EXPECT_EQ(0U, cache->getUsed());
}

TEST_F(WriteCacheTest, MemoryIsAskedForAndGivenBackInThePlatformsCodes)
{
    FsysFile* const file = openForWriting();
    EXPECT_THAT(allocations(), ElementsAre("0 524288 12288 4"));
    {
        const MemBlock block(4096);
    }
    EXPECT_THAT(allocations(1), ElementsAre("0 4608 12288 4"));
    FsysClose(file, nullptr);
    for (const fake::PageRecord& record : os.pages().records()) {
        EXPECT_TRUE(record.released);
        EXPECT_EQ(49152U, record.freeType);
    }
}

TEST_F(WriteCacheTest, ABlockThatCannotBeHadIsAskedForOnce)
{
    os.faults().failAlways(fake::Op::allocatePages, 0);
    FsysBuf pool;
    EXPECT_FALSE(pool.GetMemBlock(512, nullptr));
    EXPECT_EQ(1U, os.faults().fired());
    const MemBlock block(512);
    EXPECT_EQ(nullptr, block.getBuffer());
    EXPECT_EQ(0U, block.getSize());
}

TEST_F(WriteCacheTest, ABlockTooLargeForItsSlackHasNoMemory)
{
    const MemBlock block(0xFFFFFFFFU);
    EXPECT_EQ(nullptr, block.getBuffer());
    EXPECT_THAT(allocations(), IsEmpty());
}

TEST_F(WriteCacheTest, ClosingWritesGatheredBytesTwiceBehind512)
{
    FsysFile* const file = openForWriting();
    gather(file, std::string(100, 'A'));
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_EQ(std::string(512, '\0') + std::string(200, 'A'), written());
}

TEST_F(WriteCacheTest, GatheredBytesOfAnExistingFileReplaceWhatStandsAt512)
{
    FsysFile* const file = openForWriting(pattern(10240));
    gather(file, std::string(100, 'A'));
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_EQ(pattern(10240).substr(0, 512) + std::string(200, 'A') + pattern(10240).substr(712), written());
}

TEST_F(WriteCacheTest, TheDoubleWriteGoesThroughTheLowLevelWriteTwice)
{
    WriteSpy file(L"/m/a.mov", nullptr, 512, iDiskDrive::eLocal, fsysOpenWrite, 0);
    file.AllocWriteCache();
    gather(&file, pattern(100));
    FsysFileTestAccess::cacheStart(file) = 5000;
    file.WaitForDrain();
    using Write = std::pair<std::uint64_t, unsigned>;
    EXPECT_THAT(file.writes, ElementsAre(Write(5000, 100), Write(5100, 100)));
    EXPECT_EQ(5200U, FsysFileTestAccess::position(file));
    EXPECT_EQ(0U, FsysFileTestAccess::gathered(file));
}

TEST_F(WriteCacheTest, ADrainThatDoesNotEndIsReportedAfterFourSeconds)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    holdOneWrite(file, calls);
    const double before = os.clock().msecsPrecise();
    file->WaitForDrain();
    EXPECT_DOUBLE_EQ(4000, os.clock().msecsPrecise() - before);
    EXPECT_THAT(logged.splats(),
                ElementsAre(std::pair<std::string, int>("Timed out waiting for write completion\n", 0)));
    os.transfers().completeAll();
}

TEST_F(WriteCacheTest, ADrainEndsWhenTheLastWriteDoes)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    holdOneWrite(file, calls);
    const double before = os.clock().msecsPrecise();
    os.clock().after(1000, [this] { os.transfers().completeNext(); });
    file->WaitForDrain();
    EXPECT_DOUBLE_EQ(1000, os.clock().msecsPrecise() - before);
    EXPECT_THAT(logged.splats(), IsEmpty());
}

TEST_F(WriteCacheTest, AReadFileHasNothingToDrain)
{
    FsysFile* const file = openForReading(pattern(1024));
    file->WaitForDrain();
    EXPECT_THAT(os.clock().waits(), IsEmpty());
}

TEST_F(WriteCacheTest, ClosingAfterAFailedWriteWaitsTwice)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    holdOneWrite(file, calls);
    os.transfers().failNext(errorFromErrno(EIO));
    const double before = os.clock().msecsPrecise();
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_DOUBLE_EQ(8000, os.clock().msecsPrecise() - before);
    EXPECT_THAT(logged.splats(), SizeIs(2));
    unsigned bytes = 0;
    FsysGetWriteBytesOutstanding(&bytes);
    EXPECT_EQ(512U, bytes);  // counted for ever
}

TEST_F(WriteCacheTest, ClearingMemoryReferencesEmptiesTheReadList)
{
    FsysFile* const file = openForReading(pattern(65536));
    Calls calls;
    for (long i = 0; i < 3; ++i)
        file->DirectRead(i * 8192, 512, false, &Calls::record, calls.context());
    readPass();
    os.transfers().completeAll();
    EXPECT_EQ(1U, file->ClearMemoryRefs());
    EXPECT_TRUE(FsysFileTestAccess::reads(*file).empty());
}

TEST_F(WriteCacheTest, AViewOutlivesItsRequestAndItsFile)
{
    FsysFile* const file = openForReading(pattern(8192));
    Qz::Ptr<iMemHolder> view;
    {
        Calls calls;
        file->DirectRead(700, 300, false, &Calls::record, calls.context());
        readPass();
        os.transfers().completeAll();
        view = calls.last().data;
        FsysClose(file, nullptr);
    }
    EXPECT_EQ(0, std::memcmp(view->getBuffer(), pattern(8192).data() + 700, 300));
    EXPECT_EQ(1U, os.live().pages);
    view.reset();
    EXPECT_EQ(0U, os.live().pages);
}

TEST_F(WriteCacheTest, TheDrainedEventFollowsTheOutstandingBytes)
{
    FsysFile* const file = openForWriting();
    file->CheckOutstandingWrites();
    EXPECT_TRUE(FsysFileTestAccess::drained(*file)->wait(0));
    file->CheckOutstandingWrites();
    FsysFileTestAccess::setWriteOutstanding(*file, 1);
    file->CheckOutstandingWrites();
    EXPECT_FALSE(FsysFileTestAccess::drained(*file)->wait(0));
    FsysFileTestAccess::setWriteOutstanding(*file, 0);
}

TEST_F(WriteCacheTest, IssuingAWriteResetsTheDrainedEvent)
{
    FsysFile* const file = openForWriting();
    file->CheckOutstandingWrites();
    Calls calls;
    holdOneWrite(file, calls);
    EXPECT_FALSE(FsysFileTestAccess::drained(*file)->wait(0));
    os.transfers().completeAll();
    EXPECT_TRUE(FsysFileTestAccess::drained(*file)->wait(0));
}

TEST_F(WriteCacheTest, RacingCompletionsNeverLeaveTheDrainedEventReset)
{
    FsysFile* const file = openForWriting();
    for (int round = 0; round < 2000; ++round) {
        FsysFileTestAccess::setWriteOutstanding(*file, 1024);
        const auto complete = [&] {
            file->subtractOutstanding(false, 512);
            file->CheckOutstandingWrites();
        };
        theFsys.load()->writeBytesOutstanding = 1024;
        std::thread other(complete);
        complete();
        other.join();
        ASSERT_TRUE(FsysFileTestAccess::drained(*file)->wait(0)) << "round " << round;
    }
}

TEST_F(WriteCacheTest, ANewCacheReplacesTheOldOneEmpty)
{
    FsysFile* const file = openForWriting();
    gather(file, pattern(100));
    file->AllocWriteCache();
    EXPECT_EQ(0U, FsysFileTestAccess::gathered(*file));
    EXPECT_EQ(1U, os.live().pages);
    file->FreeWriteCache();
    EXPECT_EQ(0U, os.live().pages);
}
