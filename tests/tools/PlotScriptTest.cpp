#include "PlotScript.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace {

using testing::HasSubstr;
using testing::Not;

// The lines of a block of data.
std::vector<std::string> block(const std::string& script, const std::string& name)
{
    std::istringstream lines(script.substr(script.find("$" + name + " << END\n")));
    std::vector<std::string> found;
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line) && line != "END")
        found.push_back(line);
    return found;
}

TimedTransfer transfer(double startS, double latencyMs, std::uint64_t bytes = 1000)
{
    return {.startS = startS, .latencyMs = latencyMs, .bytes = bytes};
}

TimedTransfer due(double startS, double latencyMs, double allowedMs)
{
    TimedTransfer timed = transfer(startS, latencyMs);
    timed.allowedMs = allowedMs;
    return timed;
}

std::string script(std::vector<TimedTransfer> transfers, const std::string& title = "title")
{
    return plotScript(PlotFormat::svg, title, std::move(transfers));
}

}  // namespace

TEST(Plot, SeparatesLateTransfersFromThoseOnTime)
{
    const std::string text = script({due(0, 5, 10), due(1, 20, 10), due(2, 10, 10)});
    EXPECT_EQ(block(text, "points"), (std::vector<std::string>{"0 5", "2 10"}));
    EXPECT_EQ(block(text, "late"), (std::vector<std::string>{"1 20"}));
    EXPECT_EQ(block(text, "deadline"), (std::vector<std::string>{"0 10", "1 10", "2 10"}));
}

TEST(Plot, ATransferThatWasAskedForTooLateIsLateAtOnce)
{
    const std::string text = script({due(0, 5, -3)});
    EXPECT_EQ(block(text, "late"), (std::vector<std::string>{"0 5"}));
    EXPECT_EQ(block(text, "deadline"), (std::vector<std::string>{"0 1"})) << "at the lower edge of the axis";
}

TEST(Plot, TransfersOfSeveralStreamsStandInTheOrderOfTime)
{
    EXPECT_EQ(block(script({transfer(3, 1), transfer(1, 2), transfer(2, 3)}), "points"),
              (std::vector<std::string>{"1 2", "2 3", "3 1"}));
}

TEST(Plot, TheAxisOfLatenciesHoldsWholeDecadesAndTheDeadlines)
{
    EXPECT_THAT(script({transfer(0, 0.3), transfer(1, 70)}), HasSubstr("set yrange [0.1:100]"));
    EXPECT_THAT(script({due(0, 2, 640)}), HasSubstr("set yrange [1:1000]"));
    EXPECT_THAT(script({transfer(0, 10)}), HasSubstr("set yrange [10:100]"));
    EXPECT_THAT(script({transfer(0, 0)}), HasSubstr("set yrange [0.001:0.01]"));
}

TEST(Plot, EachTransferIsInOneBinOfTheDistribution)
{
    std::vector<TimedTransfer> transfers;
    for (int i = 0; i <= 1000; ++i)
        transfers.push_back(transfer(i, 0.001 * i * i));
    unsigned long counted = 0;
    double above = 0;
    for (const std::string& line : block(script(transfers), "bins")) {
        std::istringstream words(line);
        double middle = 0;
        unsigned long count = 0;
        double low = 0;
        double high = 0;
        words >> middle >> count >> low >> high;
        EXPECT_TRUE(low < middle && middle < high) << line;
        if (above > 0) {
            EXPECT_NEAR(low, above, above * 1e-6) << line;
        }
        above = high;
        counted += count;
    }
    EXPECT_EQ(counted, 1001U);
    EXPECT_GE(above, 1000);
}

TEST(Plot, TheStepsOfThroughputAddUpToAllBytes)
{
    std::vector<TimedTransfer> transfers;
    for (int i = 0; i < 800; ++i)
        transfers.push_back(transfer(i * 0.01, 10, 2'000'000));
    const std::vector<std::string> steps = block(script(transfers), "rate");
    ASSERT_EQ(steps.size(), 101U);
    double megabytes = 0;
    double before = 0;
    double rate = 0;
    for (const std::string& step : steps) {
        std::istringstream words(step);
        double time = 0;
        words >> time;
        megabytes += rate * (time - before);
        before = time;
        words >> rate;
    }
    EXPECT_NEAR(megabytes, 1600, 0.01);
    EXPECT_NEAR(before, 8, 1e-6);
}

TEST(Plot, OfTooManyTransfersTheSlowestOfEachMomentStay)
{
    std::vector<TimedTransfer> transfers;
    for (int i = 0; i < 60000; ++i)
        transfers.push_back(transfer(i, i % 6 == 4 ? 100 + i : 1));
    const std::string text = script(transfers);
    const std::vector<std::string> points = block(text, "points");
    EXPECT_EQ(points.size(), 20000U);
    for (int i = 4; i < 60000; i += 6) {
        std::ostringstream line;
        line << i << ' ' << 100 + i;
        EXPECT_EQ(std::count(points.begin(), points.end(), line.str()), 1) << line.str();
        i += 5994;
    }
    EXPECT_THAT(text, HasSubstr("20000 of 60000"));
}

TEST(Plot, ATitleIsTextAndNoCommand)
{
    EXPECT_THAT(script({}, "it's"), HasSubstr("title 'it''s' noenhanced"));
    const std::string text = script({}, "a\n'; system 'x'\x7f");
    EXPECT_THAT(text, HasSubstr("title 'a?''; system ''x''?' noenhanced"));
    EXPECT_THAT(script({}, "\xff"), HasSubstr("title '\xEF\xBF\xBD' noenhanced"));
}

TEST(Plot, OfNothingDrawsEmptyFrames)
{
    const std::string text = script({});
    EXPECT_THAT(text, Not(HasSubstr("with points")));
    std::size_t frames = 0;
    for (std::size_t at = text.find("plot NaN"); at != std::string::npos; at = text.find("plot NaN", at + 1))
        ++frames;
    EXPECT_EQ(frames, 3U);
}
