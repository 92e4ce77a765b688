#include "fsys/LeftRequests.h"

#include "EngineFixture.h"

namespace {

class LeftRequestsTest : public EngineTest
{
protected:
    // A file that is closed while the platform has a read of it.
    void closeWithAReadUnderWay()
    {
        FsysFile* const file = openForReading(pattern(8192));
        Qz::Ptr<iObject> none;
        file->DirectRead(0, 512, false, nullptr, none);
        readPass();
        ASSERT_EQ(1U, FsysClose(file, nullptr));
    }
};

}  // namespace

TEST_F(LeftRequestsTest, AReportedEndFreesARequestWhoseFileIsClosed)
{
    closeWithAReadUnderWay();
    EXPECT_EQ(1U, LeftRequests::count());
    EXPECT_EQ(1U, os.live().pages);
    EXPECT_TRUE(os.transfers().completeNext());
    EXPECT_EQ(0U, LeftRequests::count());
    EXPECT_EQ(0U, os.live().pages);
}

TEST_F(LeftRequestsTest, MemoryIsKeptUntilTheTransferEnds)
{
    closeWithAReadUnderWay();
    LeftRequests::releaseEnded();
    EXPECT_EQ(1U, LeftRequests::count());
    EXPECT_EQ(1U, os.live().pages);
}

TEST_F(LeftRequestsTest, TheEndOfTheEngineFreesThoseThatEndedWithoutAReport)
{
    closeWithAReadUnderWay();
    os.transfers().abandon();
    EXPECT_EQ(1U, LeftRequests::count());
    EXPECT_EQ(1U, os.live().pages);
    FsysUninitialize(Shutdown::eNormalExit);
    EXPECT_EQ(0U, LeftRequests::count());
    EXPECT_EQ(fake::Live{}, os.live());
}
