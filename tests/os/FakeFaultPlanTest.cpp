#include "os/testing/FaultPlan.h"

#include "os/LastError.h"

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

TEST(FakeFaultPlanDeathTest, AFaultThatCannotFireStopsTheTest)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(fake::FaultPlan().failNext(Op::getFileSize, 1), "cannot fail");
}

}  // namespace
