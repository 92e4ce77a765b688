#include "os/OS.h"

#include <gtest/gtest.h>

namespace {

class OtherOS final : public iOperatingSystem
{
public:
    iFileManager* getFileManager() override { return nullptr; }
    iThreadServices* getThreadServices() override { return nullptr; }
    iClock* getClock() override { return nullptr; }
    iPageMemory* getPageMemory() override { return nullptr; }
    Qz::Ptr<iCompletionPort> createCompletionPort(const char*, const IOCompletionCommand&, int, int, int,
                                                  int) override
    {
        return {};
    }
};

iOperatingSystem* const duringStaticInitialisation = OS();

}  // namespace

TEST(OperatingSystem, IsThereBeforeMainAndStaysTheSame)
{
    ASSERT_NE(duringStaticInitialisation, nullptr);
    EXPECT_EQ(duringStaticInitialisation, OS());
    EXPECT_NE(OS()->getFileManager(), nullptr);
    EXPECT_NE(OS()->getThreadServices(), nullptr);
    EXPECT_NE(OS()->getClock(), nullptr);
    EXPECT_NE(OS()->getPageMemory(), nullptr);
}

TEST(OperatingSystem, CanBeReplacedAndBroughtBack)
{
    iOperatingSystem* const real = OS();
    OtherOS other;
    EXPECT_EQ(setOS(&other), real);
    EXPECT_EQ(OS(), &other);
    EXPECT_EQ(setOS(nullptr), &other);
    EXPECT_EQ(OS(), real);
}
