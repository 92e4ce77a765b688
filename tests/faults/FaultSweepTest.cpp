// Every scenario with every fault.

#include "LinuxStage.h"
#include "Scenarios.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <ostream>

namespace {

class FaultSweep : public testing::TestWithParam<Scenario>
{
protected:
    static void TearDownTestSuite()
    {
        std::printf("fault points: %lu run, %lu met, %lu failures\n", Sweep::pointsRun, Sweep::pointsMet,
                    Sweep::failures);
    }
};

std::string scenarioName(const testing::TestParamInfo<Scenario>& info)
{
    std::string name;
    bool begins = true;
    for (const char letter : std::string(info.param.name)) {
        const bool isLetter = std::isalnum(static_cast<unsigned char>(letter)) != 0;
        if (isLetter)
            name += begins ? static_cast<char>(std::toupper(static_cast<unsigned char>(letter))) : letter;
        begins = !isLetter;
    }
    return name;
}

}  // namespace

void PrintTo(const Scenario& scenario, std::ostream* stream) { *stream << scenario.name; }

TEST_P(FaultSweep, IsSurvivedAndTold) { Sweep(GetParam()).run(); }

// The same on the real platform, with real threads, files and transfers.
class FaultSweepOnLinux : public FaultSweep
{
};

TEST_P(FaultSweepOnLinux, IsSurvivedAndTold)
{
    constexpr std::size_t share = 25;
    Sweep(
        GetParam(), [] { return std::make_unique<LinuxStage>(); }, share)
        .run();
}

// And below it: threads that cannot be started, rings that cannot be built or used.
// Scenarios of locations make neither.
class SystemFaultSweep : public FaultSweep
{
};

TEST_P(SystemFaultSweep, IsSurvivedAndTold)
{
    constexpr std::size_t share = 25;
    Sweep(
        GetParam(), [] { return std::make_unique<LinuxStage>(); }, share, Sweep::Level::system)
        .run();
}

INSTANTIATE_TEST_SUITE_P(Recording, SystemFaultSweep, testing::ValuesIn(recordingScenarios()), scenarioName);
INSTANTIATE_TEST_SUITE_P(Playing, SystemFaultSweep, testing::ValuesIn(playingScenarios()), scenarioName);
INSTANTIATE_TEST_SUITE_P(Engine, SystemFaultSweep, testing::ValuesIn(engineScenarios()), scenarioName);
INSTANTIATE_TEST_SUITE_P(Recording, FaultSweepOnLinux, testing::ValuesIn(recordingScenarios()), scenarioName);
INSTANTIATE_TEST_SUITE_P(Playing, FaultSweepOnLinux, testing::ValuesIn(playingScenarios()), scenarioName);
INSTANTIATE_TEST_SUITE_P(Engine, FaultSweepOnLinux, testing::ValuesIn(engineScenarios()), scenarioName);
INSTANTIATE_TEST_SUITE_P(Locations, FaultSweepOnLinux, testing::ValuesIn(locationScenarios()), scenarioName);
INSTANTIATE_TEST_SUITE_P(Recording, FaultSweep, testing::ValuesIn(recordingScenarios()), scenarioName);
INSTANTIATE_TEST_SUITE_P(Playing, FaultSweep, testing::ValuesIn(playingScenarios()), scenarioName);
INSTANTIATE_TEST_SUITE_P(Engine, FaultSweep, testing::ValuesIn(engineScenarios()), scenarioName);
INSTANTIATE_TEST_SUITE_P(Locations, FaultSweep, testing::ValuesIn(locationScenarios()), scenarioName);
