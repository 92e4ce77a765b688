// Requests and files that end while somebody still uses them: closes and ends of the engine at the worst
// moment.

#include "EngineFixture.h"
#include "os/LastError.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::SizeIs;
using Access = FileRequestTestAccess;

namespace {

class RequestLifetimeTest : public EngineTest
{
protected:
    // A completion function that stays inside until it is let go.
    struct Blocker : public iObject
    {
        std::promise<void> entered;
        std::promise<void> letGo;
        std::atomic<unsigned> calls{0};

        static void function(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>&, RequestStatus)
        {
            const Qz::Ptr<Blocker> self = Qz::dynamicCast<Blocker>(context);
            ++self->calls;
            self->entered.set_value();
            self->letGo.get_future().wait();
        }
    };
};

}  // namespace

TEST_F(RequestLifetimeTest, ACloseDuringACallbackLeavesRequestAndFileToIt)
{
    FsysFile* const file = openForReading(pattern(8192));
    const Qz::Ptr<Blocker> blocker(new Blocker);
    Qz::Ptr<iObject> context = blocker;
    EXPECT_EQ(1U, file->DirectRead(0, 512, false, &Blocker::function, context));
    readPass();
    ASSERT_TRUE(os.transfers().startNext());
    blocker->entered.get_future().wait();
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_EQ(1U, os.live().pages);  // the callback may still look at its data
    blocker->letGo.set_value();
    os.transfers().join();
    EXPECT_EQ(1U, blocker->calls);
    EXPECT_EQ(0U, os.live().pages);
    EXPECT_EQ(0U, os.live().files);
    EXPECT_EQ(0U, theFsys.load()->readBytesOutstanding);
}

TEST_F(RequestLifetimeTest, ACloseFromACompletionFunctionIsSurvived)
{
    struct Closer : public iObject
    {
        FsysFile* file = nullptr;
        unsigned result = 0;
    };
    const Qz::Ptr<Closer> closer(new Closer);
    closer->file = openForReading(pattern(8192));
    Qz::Ptr<iObject> context = closer;
    closer->file->DirectRead(
        0, 512, false,
        [](Qz::Ptr<iObject>& self, Qz::Ptr<iMemHolder>&, RequestStatus) {
            auto& me = static_cast<Closer&>(*self);
            me.result = FsysClose(me.file, nullptr);
        },
        context);
    readPass();
    os.clock().useRealTime();  // the close waits on the port's thread
    os.transfers().completeNext();
    EXPECT_EQ(1U, closer->result);
    EXPECT_EQ(fake::Live({0, 0, 2, 0, 2, 2}), os.live());
}

TEST_F(RequestLifetimeTest, AnEndOfTheEngineFromACompletionFunctionIsSurvived)
{
    FsysFile* const file = openForReading(pattern(8192));
    Qz::Ptr<iObject> none;
    file->DirectRead(
        0, 512, false,
        [](Qz::Ptr<iObject>&, Qz::Ptr<iMemHolder>&, RequestStatus) {
            FsysUninitialize(Shutdown::eNormalExit);
        },
        none);
    readPass();
    os.clock().useRealTime();
    os.transfers().completeNext();
    EXPECT_EQ(nullptr, theFsys.load());
    EXPECT_EQ(0U, os.live().pages);
    EXPECT_EQ(0U, os.live().files);
}

TEST_F(RequestLifetimeTest, AWaitingWriterWakesWhenItsFileIsClosed)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    unsigned result = 99;
    std::thread writer([&] {
        Qz::Ptr<iMemHolder> data(new TestData(pattern(512)));
        result = file->DirectWrite(data, false, &Calls::record, calls.context(), true);
    });
    ASSERT_TRUE(os.clock().awaitOthersWaiting(1));
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    writer.join();
    EXPECT_EQ(1U, result);
    EXPECT_EQ(0U, calls.count());
    EXPECT_EQ(0U, os.live().files);
}

TEST_F(RequestLifetimeTest, AWaitingFlushOutlivesTheWriteCacheOfItsFile)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    std::thread writer([&] {
        Qz::Ptr<iMemHolder> data(new TestData(pattern(132000)));
        file->DirectWrite(data, false, &Calls::record, calls.context(), false);
    });
    ASSERT_TRUE(os.clock().awaitOthersWaiting(1));
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    writer.join();
    EXPECT_EQ(0U, os.live().pages);
}

TEST_F(RequestLifetimeTest, AWaitingWriterOfAFileLeftOpenWakesWhenTheEngineEnds)
{
    os.files().addFile(L"/m/w1", "");
    os.files().addFile(L"/m/w2", "");
    open(L"/m/w1", fsysOpenWrite);
    FsysFile* const left = open(L"/m/w2", fsysOpenWrite);
    Calls calls;
    std::thread writer([&] {
        Qz::Ptr<iMemHolder> data(new TestData(pattern(512)));
        left->DirectWrite(data, false, &Calls::record, calls.context(), true);
    });
    ASSERT_TRUE(os.clock().awaitOthersWaiting(1));
    FsysUninitialize(Shutdown::eNormalExit);
    writer.join();
    EXPECT_EQ(0U, calls.count());
    FsysFile::release(left);
    EXPECT_EQ(fake::Live{}, os.live());
}

TEST_F(RequestLifetimeTest, ARequestThatHasEndedTakesInNobody)
{
    FsysFile* const file = openForReading(pattern(8192));
    Calls calls;
    FileRequest other(true, 512, 0, true, false, nullptr, file, &Calls::record, calls.context());
    for (const FileRequest::Status end : {FileRequest::COMPLETE, FileRequest::FAILED}) {
        auto* const request =
            new FileRequest(true, 512, 0, true, false, nullptr, file, &Calls::record, calls.context());
        request->setStatus(FileRequest::STARTED);
        EXPECT_EQ(1U, request->Coalesce(&other));
        EXPECT_TRUE(request->beginFinish());
        EXPECT_EQ(0U, request->Coalesce(&other));
        FileRequest::finish(request, end);
        EXPECT_EQ(0U, request->Coalesce(&other));
        EXPECT_THAT(Access::completions(*request), SizeIs(2));
        FileRequest::destroy(request);
    }
}

TEST_F(RequestLifetimeTest, AWriteToAClosingFileIsRefusedAfterTheRetriesOfAFullList)
{
    // The last error still says "list full" from an earlier refusal, so the writer tries for its four
    // seconds.
    FsysFile* const file = openForWriting();
    FsysFileTestAccess::setClosing(*file, true);
    FsysError = EngineError::listFull;
    Calls calls;
    Qz::Ptr<iMemHolder> data(new TestData(pattern(512)));
    EXPECT_EQ(0U, file->DirectWrite(data, false, &Calls::record, calls.context(), false));
    EXPECT_THAT(os.clock().sleeps(), AllOf(SizeIs(200), Each(Field(&fake::SleepRecord::ms, 20U))));
    EXPECT_EQ(0U, calls.references());
    FsysFileTestAccess::setClosing(*file, false);
}

TEST_F(RequestLifetimeTest, ACloseWhoseSegmentIsRefusedLeavesTheFileOpenAndClosing)
{
    FsysFile* const file = openForWriting(pattern(2048));
    FsysFileTestAccess::segment(*file) = Qz::Ptr<iMemHolder>(new TestData(std::string(512, '.')));
    FsysFileTestAccess::segmentFill(*file) = 100;
    os.faults().failNext(fake::Op::asyncWrite, errorFromErrno(EIO));
    EXPECT_EQ(0U, FsysClose(file, nullptr));
    EXPECT_TRUE(FsysFileTestAccess::closing(*file));
    EXPECT_EQ(file, FsysTestAccess::writeFiles()[0]);
    FsysFileTestAccess::position(*file) = 1124;
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_EQ(1U, os.transfers().completeAll());  // it was never counted, so the close did not wait for it
    EXPECT_EQ(0U, os.live().contexts);
    EXPECT_EQ(std::string(100, '.') + std::string(412, '\0'), written().substr(1024, 512));
}

TEST_F(RequestLifetimeTest, WithoutABufferPoolAReadWaitsForOne)
{
    FsysFile* const file = openForReading(pattern(8192));
    Calls calls;
    EXPECT_EQ(1U, file->DirectRead(0, 512, false, &Calls::record, calls.context()));
    FsysBuf* const pool = Fsys::BufferSpace_.exchange(nullptr);
    readPass();
    EXPECT_EQ(1U, Access::startRetries(*FsysFileTestAccess::reads(*file)[0]));
    EXPECT_EQ(FileRequest::QUEUED, FsysFileTestAccess::reads(*file)[0]->status());
    Fsys::BufferSpace_ = pool;
    readPass();
    os.transfers().completeAll();
    EXPECT_EQ(1U, calls.count());
}

TEST_F(RequestLifetimeTest, AWriteInAReadListIsReportedWhenTheListIsCleared)
{
    FsysFile* const file = openForReading(pattern(8192));
    Calls calls;
    FsysFileTestAccess::reads(*file).add(new FileRequest(false, 512, 0, false, false,
                                                         Qz::Ptr<iMemHolder>(new TestData(pattern(512))),
                                                         file, &Calls::record, calls.context()));
    testing::internal::CaptureStdout();
    EXPECT_EQ(1U, file->ClearMemoryRefs());
    EXPECT_EQ("assertion failed fr->is_read_ at ole/fsys/FsysFile line 1185\n",
              testing::internal::GetCapturedStdout());
    EXPECT_TRUE(FsysFileTestAccess::reads(*file).empty());
}

TEST_F(RequestLifetimeTest, ACachedAnswerWithoutMemoryIsReported)
{
    FsysFile* const file = openForReading(pattern(8192));
    Calls calls;
    file->DirectRead(0, 512, false, &Calls::record, calls.context());
    readPass();
    os.transfers().completeAll();
    Access::buffer(*FsysFileTestAccess::reads(*file)[0]).reset();
    auto* const request =
        new FileRequest(true, 100, 0, true, false, Qz::Ptr<iMemHolder>(new TestData(pattern(100))), file,
                        &Calls::record, calls.context());
    testing::internal::CaptureStdout();
    EXPECT_EQ(1U, file->SatisfyFromCache(request));
    EXPECT_EQ("assertion failed fr->buffer_ == NULL at ole/fsys/FsysFile line 731\n"
              "assertion failed CachedFr->buffer_ != NULL at ole/fsys/FsysFile line 732\n",
              testing::internal::GetCapturedStdout());
}

TEST_F(RequestLifetimeTest, ADirectlyOpenedFileForWritingStartsAtItsSizeWithACache)
{
    os.files().addDirect(L"/m/device", std::string(700, 'd'));
    FsysFile* const file = open(L"/m/device", fsysOpenWrite);
    EXPECT_THAT(os.log().lines({fake::Op::open}), ElementsAre("open /m/device 2 2 0 0"));
    EXPECT_EQ(file, FsysTestAccess::writeFiles()[0]);
    EXPECT_TRUE(FsysFileTestAccess::cache(*file));
    FILE_INFO info;
    file->LowLevelGetInfo(&info);
    EXPECT_EQ(info.size, FsysFileTestAccess::position(*file));
}

TEST_F(RequestLifetimeTest, WritesToALinkGoDirectlyToItsTargetAndSynchronouslyToTheLinkItself)
{
    os.files().addFile(L"/m/target.mov", pattern(4096));
    std::string link("/m/target.mov");
    link.resize(512, '\0');
    os.files().addFile(L"/m/link.mov", link);
    FsysFile* const file = open(L"/m/link.mov", fsysOpenWrite);
    EXPECT_EQ(512U, FsysFileTestAccess::position(*file));
    Calls calls;
    Qz::Ptr<iMemHolder> data(new TestData(std::string(512, 'D')));
    EXPECT_EQ(1U, file->DirectWrite(data, false, &Calls::record, calls.context(), false));
    writePass();
    os.transfers().completeAll();
    EXPECT_EQ(std::string(512, 'D'), os.files().contents(L"/m/target.mov").substr(512, 512));
    EXPECT_EQ(1U, file->Write("own", 3));
    EXPECT_EQ(link + std::string(512, '\0') + "own", os.files().contents(L"/m/link.mov"));
}
