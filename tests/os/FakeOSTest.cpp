#include "os/testing/FakeOS.h"
#include "FakeReceiver.h"
#include "os/Clock.h"

#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;

TEST(FakeOS, IsInstalledForAScope)
{
    iOperatingSystem* const before = OS();
    {
        FakeOS outer;
        ScopedOS installed(outer);
        EXPECT_EQ(OS(), &outer);
        {
            FakeOS inner;
            ScopedOS alsoInstalled(inner);
            EXPECT_EQ(OS(), &inner);
        }
        EXPECT_EQ(OS(), &outer);
    }
    EXPECT_EQ(OS(), before);
}

TEST(FakeOS, DrivesTheShortFormsOfTheClock)
{
    FakeOS os;
    ScopedOS installed(os);
    os.clock().setNow(1234.5);
    EXPECT_EQ(service_get_msecs(), 1234U);
    EXPECT_EQ(service_get_msecs_precise(), 1234.5);
    EXPECT_EQ(now(), 1234.5);
}

TEST(FakeOS, CountsWhatIsAlive)
{
    FakeOS os;
    ScopedOS installed(os);
    EXPECT_EQ(os.live(), fake::Live{});
    os.files().addFile(L"/a");
    FakeReceiver receiver;
    {
        const auto file = OS()->getFileManager()->open(L"/a", 1, 0, 4, 2);
        const auto event = OS()->getThreadServices()->createEvent(0, 0, nullptr);
        const auto context = OS()->getFileManager()->createAsyncContext(nullptr);
        const CompletionPortHandler port("p", receiver.command(), 3, 3, 3, 3);
        void* pages = OS()->getPageMemory()->allocate(nullptr, 10, 12288, 4);
        EXPECT_EQ(os.live(), (fake::Live{1, 1, 1, 1, 1, 0}));
        OS()->getPageMemory()->release(pages, 49152);
    }
    EXPECT_EQ(os.live(), fake::Live{});
}

TEST(FakeOS, LogsAllKindsOfCallsInOneOrder)
{
    FakeOS os;
    ScopedOS installed(os);
    os.files().addFile(L"/a", "abc");
    const auto event = OS()->getThreadServices()->createEvent(0, 0, nullptr);
    auto file = OS()->getFileManager()->open(L"/a", 1, 0, 4, 0);
    char byte = 0;
    file->read(1, &byte, 1, nullptr);
    event->set();
    event->wait(5);
    event->reset();
    OS()->getClock()->sleep(20);
    file.reset();
    EXPECT_EQ(os.log().lines(), (Lines{"createEvent 0", "open /a 1 0 4 0", "read /a 1+1", "setEvent 0",
                                       "waitEvent 0 5", "resetEvent 0", "sleep 20", "close /a"}));
    os.log().clear();
    EXPECT_TRUE(os.log().calls().empty());
    EXPECT_EQ(os.log().count(fake::Op::open), 0U);
}

}  // namespace
