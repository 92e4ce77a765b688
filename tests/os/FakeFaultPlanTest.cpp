#include "os/testing/FaultPlan.h"

#include "os/Codes.h"
#include "os/LastError.h"
#include "os/testing/FakeOS.h"

#include <cerrno>

#include <gtest/gtest.h>

namespace {

using fake::Op;

TEST(FakeFaultPlan, TheNthCallFailsOnce)
{
    fake::FaultPlan plan;
    plan.failNth(Op::read, 3, 42);
    EXPECT_FALSE(plan.check(Op::read));
    EXPECT_FALSE(plan.check(Op::write));
    EXPECT_FALSE(plan.check(Op::read));
    const auto fault = plan.check(Op::read);
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->code, 42U);
    EXPECT_FALSE(plan.check(Op::read));
    EXPECT_EQ(plan.fired(), 1U);
    EXPECT_EQ(plan.fired(Op::read), 1U);
    EXPECT_EQ(plan.fired(Op::write), 0U);
}

TEST(FakeFaultPlan, TheNextCallsFail)
{
    fake::FaultPlan plan;
    plan.failNext(Op::open, 1, 2);
    EXPECT_TRUE(plan.check(Op::open));
    EXPECT_TRUE(plan.check(Op::open));
    EXPECT_FALSE(plan.check(Op::open));
}

TEST(FakeFaultPlan, EveryCallFailsUntilThePlanIsCleared)
{
    fake::FaultPlan plan;
    plan.failAlways(Op::asyncRead, 9);
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(plan.check(Op::asyncRead));
    plan.clear();
    EXPECT_FALSE(plan.check(Op::asyncRead));
    EXPECT_EQ(plan.fired(Op::asyncRead), 100U);
}

TEST(FakeFaultPlan, AFaultMayBeMeantForOnePath)
{
    fake::FaultPlan plan;
    plan.failOn(L"/b", Op::open, 9);
    EXPECT_FALSE(plan.check(Op::open, L"/a"));
    EXPECT_TRUE(plan.check(Op::open, L"/b"));
    EXPECT_TRUE(plan.check(Op::open, L"/b"));
}

TEST(FakeFaultPlan, FaultsCountCallsSideBySide)
{
    fake::FaultPlan plan;
    plan.failNth(Op::open, 1, 11);
    plan.failNth(Op::open, 2, 22);
    EXPECT_EQ(plan.check(Op::open)->code, 11U);
    EXPECT_EQ(plan.check(Op::open)->code, 22U);
    EXPECT_FALSE(plan.check(Op::open));
}

TEST(FakeFaultPlan, CodeZeroStandsForTheUsualError)
{
    fake::FaultPlan plan;
    plan.failNext(Op::write, 0);
    plan.failNext(Op::allocatePages, 0);
    EXPECT_EQ(plan.check(Op::write)->code, errorFromErrno(EIO));
    EXPECT_EQ(plan.check(Op::allocatePages)->code, errorFromErrno(ENOMEM));
}

TEST(FakeFaultPlan, CallsAreCountedWhetherOrNotTheyMeetAFault)
{
    fake::FaultPlan plan;
    plan.failNth(Op::open, 2, 1);
    for (int i = 0; i < 3; ++i)
        static_cast<void>(plan.check(Op::open));
    EXPECT_EQ(plan.asked(Op::open), 3U);
    plan.forgetCalls();
    EXPECT_EQ(plan.asked(Op::open), 0U);
}

TEST(FakeFaultPlan, DelaysAndDropsOfTransfersAreMetWhenTheyAreAccepted)
{
    fake::FaultPlan plan;
    fake::Fault fault;
    fault.op = Op::completion;
    fault.effect = fake::Effect::drop;
    plan.add(fault);
    EXPECT_FALSE(plan.check(Op::completion));
    EXPECT_TRUE(plan.checkAccepted(L"/a"));
    plan.failNext(Op::completion, 1);
    EXPECT_FALSE(plan.checkAccepted(L"/a"));
    EXPECT_TRUE(plan.check(Op::completion));
    EXPECT_EQ(plan.asked(Op::completion), 2U);
}

TEST(FakeFaultPlan, ADelayPassesOnThePlatformsClockAndTheCallIsCarriedOut)
{
    FakeOS os;
    os.files().addFile(L"/a", "abc");
    fake::Fault fault;
    fault.op = Op::getFileSize;
    fault.effect = fake::Effect::delay;
    fault.delayMs = 700;
    os.faults().add(fault);
    const double before = os.clock().msecsPrecise();
    EXPECT_EQ(os.files().getFileSize(L"/a"), 3U);
    EXPECT_EQ(os.clock().msecsPrecise() - before, 700);
}

TEST(FakeFaultPlan, QuestionsThatCannotBeAnsweredFindNothing)
{
    FakeOS os;
    os.files().addDrive(L"/m/");
    os.files().addFile(L"/m/a", "abc");
    for (const Op op : {Op::getFileSize, Op::fileExists, Op::directoryExists, Op::isWritable,
                        Op::getDriveForPath, Op::listDisks})
        os.faults().failNext(op, errorFromErrno(ETIMEDOUT));
    EXPECT_EQ(os.files().getFileSize(L"/m/a"), 0U);
    EXPECT_EQ(lastError(), errorFromErrno(ETIMEDOUT));
    EXPECT_FALSE(os.files().fileExists(L"/m/a"));
    EXPECT_FALSE(os.files().directoryExists(L"/m"));
    EXPECT_FALSE(os.files().isWritable(L"/m"));
    EXPECT_FALSE(os.files().getDriveForPath(L"/m/a"));
    EXPECT_TRUE(os.files().listDisks(1).empty());
    EXPECT_TRUE(os.files().fileExists(L"/m/a"));
}

TEST(FakeFaultPlan, AReadThatIsCutShortEndsWellAndAWriteFailsThere)
{
    FakeOS os;
    os.files().addFile(L"/a", "abcdef");
    const Qz::Ptr<iFile> file =
        os.files().open(L"/a", os::accessReadWrite, os::creationOpen, os::shareAll, os::modePlain);
    fake::Fault fault;
    fault.effect = fake::Effect::shorten;
    fault.bytes = 2;
    for (const Op op : {Op::read, Op::write}) {
        fault.op = op;
        os.faults().add(fault);
    }
    char bytes[] = "123456";
    std::size_t done = 0;
    EXPECT_TRUE(file->read(0, bytes, 6, &done));
    EXPECT_EQ(done, 2U);
    EXPECT_FALSE(file->write(0, "ABCDEF", 6, &done));
    EXPECT_EQ(done, 2U);
    EXPECT_EQ(os.files().contents(L"/a"), "ABcdef");
}

TEST(FakeFaultPlanDeathTest, AFaultThatCannotFireStopsTheTest)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(fake::FaultPlan().failNext(Op::sleep, 1), "cannot fail");
}

}  // namespace
