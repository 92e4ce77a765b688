// Writes whose bytes are no whole sectors: what is staged, and what the platform is asked for.

#include "EngineFixture.h"
#include "os/LastError.h"

#include <gmock/gmock.h>

using testing::SizeIs;
using Access = FileRequestTestAccess;

namespace {

const std::string reported = "assertion failed false at ole/fsys/FileRequest line 154\n";

class WriteStagingTest : public EngineTest
{
protected:
    template <class Body>
    static std::string printed(const Body& body)
    {
        testing::internal::CaptureStdout();
        body();
        return testing::internal::GetCapturedStdout();
    }
    // What adjusting a write of bytes at position prints; the write itself goes nowhere.
    std::string adjusted(unsigned long position, unsigned bytes, const Qz::Ptr<iMemHolder>& segment)
    {
        Qz::Ptr<iObject> none;
        FileRequest* request = nullptr;
        printed([&] {  // a request for nothing reports itself
            request = new FileRequest(false, bytes, position, true, false,
                                      Qz::Ptr<iMemHolder>(new TestData(pattern(1024))), file, nullptr, none);
        });
        const std::string text = printed([&] { fill = request->WriteSectorAdjust(512, segment); });
        offset = Access::sectorOffset(*request);
        FileRequest::destroy(request);
        return text;
    }
    // Queues a write as no public operation does, and passes over it.
    void write(unsigned long position, const Qz::Ptr<iMemHolder>& data, bool coalescable = false)
    {
        auto* const request = new FileRequest(false, data->getSize(), position, coalescable, false, data,
                                              file, &Calls::record, calls.context());
        EXPECT_EQ(1U, file->QueueWriteRequest(request));
        EXPECT_EQ(reported, printed([] { writePass(); }));
    }

    FsysFile* const file = openForWriting(pattern(4096));
    Calls calls;
    unsigned fill = 99;
    int offset = 99;
};

}  // namespace

TEST_F(WriteStagingTest, LessThanASectorIsReportedAlsoAtASectorsStart)
{
    EXPECT_EQ(reported, adjusted(0, 100, Qz::Ptr<iMemHolder>()));
    EXPECT_EQ(0U, fill);
    EXPECT_EQ("", adjusted(0, 512, Qz::Ptr<iMemHolder>()));
    EXPECT_EQ(reported, adjusted(1, 512, Qz::Ptr<iMemHolder>()));
}

TEST_F(WriteStagingTest, AWriteOfNothingIsNotStaged)
{
    EXPECT_EQ("", adjusted(10, 0, Qz::Ptr<iMemHolder>(new TestData(std::string(512, '.')))));
    EXPECT_EQ(0U, fill);
    EXPECT_EQ(0, offset);
}

TEST_F(WriteStagingTest, ASegmentWithoutMemoryIsNone)
{
    os.faults().failNext(fake::Op::allocatePages, 0);
    EXPECT_EQ(reported, adjusted(10, 100, Qz::Ptr<iMemHolder>(new MemBlock(512))));
    EXPECT_EQ(0U, fill);
    EXPECT_EQ(0, offset);
}

TEST_F(WriteStagingTest, WithoutASegmentTheBytesReachThePlatformAsTheyAre)
{
    const Qz::Ptr<iMemHolder> data(new TestData(std::string(100, 'w')));
    write(10, data);
    const auto held = os.transfers().held();
    ASSERT_THAT(held, SizeIs(1));
    EXPECT_EQ(10U, held[0].position);
    EXPECT_EQ(100U, held[0].length);
    EXPECT_EQ(data->getBuffer(), held[0].buffer);
    os.transfers().completeAll();
    EXPECT_EQ(pattern(4096).replace(10, 100, std::string(100, 'w')), written());
    EXPECT_EQ(1U, calls.count());
}

TEST_F(WriteStagingTest, TheWholeSectorsInTheMiddleAreSentFromTheirPlaceInTheData)
{
    FsysFileTestAccess::segment(*file) = Qz::Ptr<iMemHolder>(new TestData(std::string(512, '.')));
    const std::string bytes = pattern(1500, 2);
    const Qz::Ptr<iMemHolder> data(new TestData(bytes));
    for (const bool coalescable : {false, true}) {
        write(10, data, coalescable);
        const auto held = os.transfers().held();
        ASSERT_THAT(held, SizeIs(2));
        EXPECT_EQ(0U, held[0].position);  // the first sector, from the segment
        EXPECT_EQ(512U, held[0].length);
        EXPECT_EQ(FsysFileTestAccess::segment(*file)->getBuffer(), held[0].buffer);
        EXPECT_EQ(coalescable, static_cast<FileRequest*>(held[0].owner)->isCoalescable());
        EXPECT_EQ(512U, held[1].position);
        EXPECT_EQ(512U, held[1].length);
        EXPECT_EQ(data->getBuffer() + 502, held[1].buffer);
        EXPECT_EQ(486U, FsysFileTestAccess::segmentFill(*file));  // the tail waits
        os.transfers().completeAll();
        EXPECT_EQ(bytes.substr(502, 512), written().substr(512, 512));
        EXPECT_EQ(pattern(4096).substr(1024), written().substr(1024));
    }
    EXPECT_EQ(2U, calls.count());
    FsysFileTestAccess::segmentFill(*file) = 0;
}

TEST_F(WriteStagingTest, AFirstSectorThatIsRefusedTellsTheLog)
{
    os.faults().failNext(fake::Op::asyncWrite, errorFromErrno(EIO));
    adjusted(10, 1014, Qz::Ptr<iMemHolder>(new TestData(std::string(512, '.'))));
    EXPECT_THAT(logged.logs(), testing::Contains(testing::HasSubstr(
                                   "512 bytes at 0 were not written (Input/output error)")));
}
