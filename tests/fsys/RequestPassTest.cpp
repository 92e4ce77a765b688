// Start passes and what wakes them: eviction, kicks, waits of the poll threads.

#include "EngineFixture.h"
#include "os/LastError.h"

#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <thread>

using testing::ElementsAre;
using testing::SizeIs;
using Access = FileRequestTestAccess;

namespace {

class RequestPassTest : public EngineTest
{
protected:
    ~RequestPassTest() override { FsysSetImmediateRequestHandling(true); }

    static unsigned ask(FsysFile* file, long position, unsigned bytes, Calls& calls, bool coalescable = false)
    {
        return file->DirectRead(position, bytes, coalescable, &Calls::record, calls.context());
    }
    static FileRequest* synchronousRead(FsysFile* file, unsigned long position, unsigned bytes)
    {
        return new FileRequest(true, bytes, position, true, true, nullptr, file, nullptr, Qz::Ptr<iObject>());
    }
    // Kicks of the read poll, whose event is the first that the engine made.
    [[nodiscard]] std::size_t readKicks() { return kicksOf(0); }
    [[nodiscard]] std::size_t kicksOf(unsigned event)
    {
        std::size_t count = 0;
        for (const fake::Call& call : os.log().calls(fake::Op::setEvent))
            count += call.handle == event ? 1U : 0U;
        return count;
    }
    // Serves a waiting caller; notes how many kicks there were when it began to wait.
    void serveAndNoteKicks()
    {
        os.clock().setIdleHandler([this] {
            kicksWhileWaiting = readKicks();
            readPass();
            return os.transfers().completeAll() != 0;
        });
    }

    std::size_t kicksWhileWaiting = 99;
};

// A poll of the test's own on real threads; the files have no other.
class PollThreadTest : public testing::Test
{
protected:
    FsysFile* addFile(const wchar_t* path)
    {
        owned_.push_back(std::make_unique<FsysFile>(LightweightString<wchar_t>(path), nullptr, 512U,
                                                    iDiskDrive::eLocal, fsysOpenRead, 0U));
        files.add(owned_.back().get());
        return owned_.back().get();
    }

    FakeOS os;
    const ScopedOS installed{os};
    const std::unique_ptr<FsysBuf> pool{new FsysBuf};
    Vector<FsysFile*> files;
    CriticalSection lock;

    PollThreadTest() { Fsys::BufferSpace_ = pool.get(); }
    ~PollThreadTest() override { Fsys::BufferSpace_ = nullptr; }

private:
    std::vector<std::unique_ptr<FsysFile>> owned_;
};

}  // namespace

TEST_F(RequestPassTest, APassDropsOneFinishedRequestAtItsStartAndOneAtItsEnd)
{
    FsysFile* const file = openForReading(pattern(65536));
    Calls calls;
    for (long i = 0; i < 5; ++i)
        ask(file, i * 8192, 512, calls);
    readPass();
    os.transfers().completeAll();
    ASSERT_THAT(FsysFileTestAccess::reads(*file), SizeIs(5));
    readPass();
    EXPECT_THAT(FsysFileTestAccess::reads(*file), SizeIs(3));
    readPass();
    EXPECT_THAT(FsysFileTestAccess::reads(*file), SizeIs(1));
}

TEST_F(RequestPassTest, EachDirectionKicksThePollOfItsOwn)
{
    FsysFile* const reader = openForReading(pattern(4096));
    FsysFile* const writer = openForWriting();
    Calls calls;
    os.log().clear();
    ask(reader, 0, 512, calls);
    EXPECT_EQ(1U, kicksOf(0));
    EXPECT_EQ(0U, kicksOf(1));
    Qz::Ptr<iMemHolder> data(new TestData(pattern(512)));
    writer->DirectWrite(data, false, &Calls::record, calls.context(), false);
    EXPECT_EQ(1U, kicksOf(0));
    EXPECT_EQ(1U, kicksOf(1));
}

TEST_F(RequestPassTest, AMergedReadThatMayNotWaitKicks)
{
    FsysFile* const file = openForReading(pattern(65536));
    Calls calls;
    FsysSetImmediateRequestHandling(false);
    ask(file, 0, 4096, calls, true);
    os.log().clear();
    ask(file, 100, 100, calls, false);
    EXPECT_THAT(FsysFileTestAccess::reads(*file), SizeIs(1));
    EXPECT_EQ(1U, readKicks());
    EXPECT_EQ(1U, FsysFileTestAccess::deferred(*file));
}

TEST_F(RequestPassTest, AStartThatFailsKicksForTheRequestsBehindIt)
{
    FsysFile* const file = openForReading(pattern(65536));
    Calls calls;
    for (const long position : {0L, 32768L})
        EXPECT_EQ(1U, ask(file, position, 512, calls));
    os.faults().failNext(fake::Op::asyncRead, 5);
    os.log().clear();
    readPass();
    EXPECT_EQ(1U, readKicks());
    ASSERT_THAT(FsysFileTestAccess::reads(*file), SizeIs(1));
    EXPECT_EQ(FileRequest::QUEUED, FsysFileTestAccess::reads(*file)[0]->status());
    readPass();
    EXPECT_EQ(1U, readKicks());
    EXPECT_EQ(FileRequest::STARTED, FsysFileTestAccess::reads(*file)[0]->status());
}

TEST_F(RequestPassTest, ASynchronousReadThatMayWaitKicksBeforeItWaitsAndIsNotCounted)
{
    FsysFile* const file = openForReading(pattern(65536));
    FsysSetImmediateRequestHandling(false);
    os.log().clear();
    serveAndNoteKicks();
    EXPECT_EQ(1U, file->QueueReadRequest(synchronousRead(file, 0, 512)));
    EXPECT_EQ(1U, kicksWhileWaiting);
    EXPECT_EQ(0U, FsysFileTestAccess::deferred(*file));
}

TEST_F(RequestPassTest, AMergedSynchronousReadThatMayWaitDoesNotKickAndIsCounted)
{
    FsysFile* const file = openForReading(pattern(65536));
    FsysSetImmediateRequestHandling(false);
    FileRequest* const listed = synchronousRead(file, 0, 4096);
    listed->setStatus(FileRequest::QUEUED);
    file->addOutstanding(true, 4096);
    FsysFileTestAccess::reads(*file).add(listed);
    os.log().clear();
    serveAndNoteKicks();
    EXPECT_EQ(1U, file->QueueReadRequest(synchronousRead(file, 1024, 512)));
    EXPECT_EQ(0U, kicksWhileWaiting);
    EXPECT_EQ(0U, readKicks());
    EXPECT_EQ(1U, FsysFileTestAccess::deferred(*file));
    EXPECT_EQ(1U, os.transfers().accepted());
}

TEST_F(PollThreadTest, WaitsItsDelayBetweenTwoPassesUnlessItIsKicked)
{
    os.threads().useRealThreads();
    FsysPoll poll(&files, &lock, true, 70, 50);
    const auto pollWaits = [this](std::size_t count) {
        // The thread enters its next wait before anybody moves the time.
        EXPECT_TRUE(os.clock().awaitOthersWaiting(1));
        while (os.clock().waits().size() < count)
            std::this_thread::yield();
        EXPECT_TRUE(os.clock().awaitOthersWaiting(1));
    };
    pollWaits(0);
    os.clock().advance(70);
    pollWaits(1);
    poll.Kick();
    pollWaits(2);
    const auto waits = os.clock().waits();
    EXPECT_EQ(70U, waits[0].timeoutMs);
    EXPECT_FALSE(waits[0].signalled);
    EXPECT_DOUBLE_EQ(70, waits[0].tookMs);
    EXPECT_EQ(70U, waits[1].timeoutMs);
    EXPECT_TRUE(waits[1].signalled);
    EXPECT_DOUBLE_EQ(0, waits[1].tookMs);
}

TEST_F(PollThreadTest, ForgetsTheKicksThatAPassIsAboutToAnswerBeforeThatPass)
{
    os.threads().useRealThreads();
    std::size_t resetsBeforeThePass = 0;
    {
        std::unique_lock<CriticalSection> passes(lock);
        FsysPoll poll(&files, &lock, true, 86400000, 50);
        const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (os.log().count(fake::Op::resetEvent) == 0 && std::chrono::steady_clock::now() < patience)
            std::this_thread::yield();
        resetsBeforeThePass = os.log().count(fake::Op::resetEvent);
        poll.Kick();  // of a read that the pass may have gone by
        passes.unlock();
        while (os.clock().waits().empty())
            std::this_thread::yield();
        EXPECT_TRUE(os.clock().awaitOthersWaiting(1));
    }
    EXPECT_EQ(1U, resetsBeforeThePass);
    const auto waits = os.clock().waits();
    EXPECT_TRUE(waits[0].signalled);
    EXPECT_DOUBLE_EQ(0, waits[0].tookMs);
}

TEST_F(PollThreadTest, EndsBetweenTwoFilesOfAPass)
{
    struct Holder : public iObject
    {
        FakeOS* os = nullptr;
        std::atomic<bool> entered{false};
        // A start that failed; stays inside until the poll has been told to end.
        static void function(Qz::Ptr<iObject>& self, Qz::Ptr<iMemHolder>&, RequestStatus)
        {
            auto& me = static_cast<Holder&>(*self);
            me.os->log().clear();
            me.entered = true;
            while (me.os->log().count(fake::Op::setEvent) == 0)  // the kick follows the telling
                std::this_thread::yield();
        }
    };
    const Qz::Ptr<Holder> holder(new Holder);
    holder->os = &os;
    Qz::Ptr<iObject> context = holder;
    Calls calls;
    FsysFile* const first = addFile(L"/m/a.mov");  // neither has a handle, so each start fails
    FsysFile* const second = addFile(L"/m/b.mov");
    first->DirectRead(0, 512, false, &Holder::function, context);
    second->DirectRead(0, 512, false, &Calls::record, calls.context());
    os.threads().useRealThreads();
    {
        const FsysPoll poll(&files, &lock, true, 86400000, 50);
        while (!holder->entered)
            std::this_thread::yield();
    }
    EXPECT_TRUE(FsysFileTestAccess::reads(*first).empty());
    EXPECT_EQ(0U, calls.count());
    ASSERT_THAT(FsysFileTestAccess::reads(*second), SizeIs(1));
    EXPECT_EQ(FileRequest::QUEUED, FsysFileTestAccess::reads(*second)[0]->status());
}
