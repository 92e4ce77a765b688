#include "DiskCounters.h"
#include "LocationMeter.h"
#include "TextWidth.h"
#include "TopTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr char mounts[] = "22 27 0:21 / /proc rw,relatime - proc proc rw\n"
                          "27 1 254:0 / / rw,relatime - ext4 /dev/vda rw\n"
                          "30 27 8:17 / /media/raid\\040a rw shared:3 master:1 - xfs /dev/sdb1 rw\n"
                          "31 27 8:33 /sub /media/over rw - xfs /dev/sdc1 rw\n"
                          "32 31 0:50 / /media/over rw - nfs4 server:/media\\040x rw,vers=4.2\n"
                          "a line that is none\n";

constexpr char shares[] = "device proc mounted on /proc with fstype proc\n"
                          "device server:/other mounted on /mnt/other with fstype nfs statvers=1.1\n"
                          "\tbytes:\t1 2 3 4 5 6 7 8\n"
                          "device server:/media mounted on /mnt/me\\040dia with fstype nfs4 statvers=1.1\n"
                          "\topts:\trw,vers=4.2\n"
                          "\tbytes:\t100 200 0 0 1048576 2097152 0 0\n"
                          "\tper-op statistics\n"
                          "\t        NULL: 1 1 0 44 24 10 2 12 0\n"
                          "\t        READ: 16 16 0 3072 1050000 5 90 100 0\n"
                          "\t       WRITE: 32 32 0 2100000 4096 7 390 400 0\n"
                          "\t      COMMIT: 2 2 0 300 200 0 40 41 0\n";

DiskCounters counters(std::uint64_t readBytes, std::uint64_t writtenBytes)
{
    return {.read = {readBytes / 100000, readBytes, readBytes / 100000},
            .written = {writtenBytes / 100000, writtenBytes, writtenBytes / 100000},
            .waitedMs = (readBytes + writtenBytes) / 100000};
}

LocationLoad location(const std::string& name = "Raid A")
{
    LocationLoad load;
    load.id = "1";
    load.name = name;
    load.online = true;
    load.load = DiskLoad{.readMbPerS = 812.43, .writeMbPerS = 95, .queueDepth = 3.14, .slow = false};
    load.freeBytes = 1'200'000'000'000;
    load.minutes = 95;
    return load;
}

std::string row(const LocationLoad& load, unsigned width) { return topTable({load}, width)[1].text; }

}  // namespace

TEST(Top, FindsTheMountOnTopOfAPlace)
{
    EXPECT_EQ(mountLineAt(mounts, "/")->device, "254:0");
    EXPECT_EQ(mountLineAt(mounts, "/media/raid a")->source, "/dev/sdb1");
    EXPECT_EQ(mountLineAt(mounts, "/media/raid a")->type, "xfs");
    EXPECT_EQ(mountLineAt(mounts, "/media/over")->source, "server:/media x");
    EXPECT_FALSE(mountLineAt(mounts, "/media"));
    EXPECT_FALSE(mountLineAt("", "/"));
}

TEST(Top, ReadsTheCountersOfADisk)
{
    const auto disk = countersOfBlockDevice(" 100 7 2048 300 50 8 4096 700 3 900 1000 1 2 3 4 5 6\n");
    ASSERT_TRUE(disk);
    EXPECT_EQ(disk->read.transfers, 100U);
    EXPECT_EQ(disk->read.bytes, 2048U * 512);
    EXPECT_EQ(disk->read.busyMs, 300U);
    EXPECT_EQ(disk->written.transfers, 50U);
    EXPECT_EQ(disk->written.bytes, 4096U * 512);
    EXPECT_EQ(disk->written.busyMs, 700U);
    EXPECT_EQ(disk->inFlight, 3U);
    EXPECT_EQ(disk->waitedMs, 1000U);
    for (const char* wrong : {"", "1 2 3", "a b c d e f g h i j k"})
        EXPECT_FALSE(countersOfBlockDevice(wrong)) << wrong;
}

TEST(Top, ReadsTheCountersOfANetworkMount)
{
    const auto share = countersOfNetworkMount(shares, "/mnt/me dia");
    ASSERT_TRUE(share);
    EXPECT_EQ(share->read.transfers, 16U);
    EXPECT_EQ(share->read.bytes, 1048576U);
    EXPECT_EQ(share->read.busyMs, 100U);
    EXPECT_EQ(share->written.transfers, 32U);
    EXPECT_EQ(share->written.bytes, 2097152U);
    EXPECT_EQ(share->waitedMs, 500U);
    EXPECT_FALSE(share->inFlight);
    EXPECT_EQ(countersOfNetworkMount(shares, "/mnt/other")->read.bytes, 5U);
    EXPECT_FALSE(countersOfNetworkMount(shares, "/proc"));
    EXPECT_FALSE(countersOfNetworkMount(shares, "/mnt"));
}

TEST(Top, RatesAreThoseOfTheTimeBetweenTwoLooks)
{
    const auto load = loadBetween(counters(0, 1'000'000), counters(50'000'000, 21'000'000), 2, 300);
    ASSERT_TRUE(load);
    EXPECT_DOUBLE_EQ(load->readMbPerS, 25);
    EXPECT_DOUBLE_EQ(load->writeMbPerS, 10);
    EXPECT_DOUBLE_EQ(load->queueDepth, 0.35);
    EXPECT_FALSE(load->slow);
}

TEST(Top, CountersThatGoBackGiveNoRates)
{
    EXPECT_FALSE(loadBetween(counters(100'000, 0), counters(0, 0), 1, 300));
    EXPECT_FALSE(loadBetween(counters(0, 100'000), counters(0, 0), 1, 300));
    EXPECT_FALSE(loadBetween(counters(0, 0), counters(0, 0), 0, 300));
}

TEST(Top, SlowIsALargeTransferBelowTheRate)
{
    const DiskCounters before;
    DiskCounters after;
    const auto isSlow = [&](DiskCounters::Direction read, int rate = 300) {
        after.read = read;
        return loadBetween(before, after, 1, rate)->slow;
    };
    EXPECT_TRUE(isSlow({1, 20000, 100})) << "200 bytes per millisecond";
    EXPECT_FALSE(isSlow({1, 20000, 66})) << "303 bytes per millisecond";
    EXPECT_FALSE(isSlow({1, 10000, 100})) << "no more than 10000 bytes";
    EXPECT_FALSE(isSlow({10, 20000, 100})) << "small ones";
    EXPECT_FALSE(isSlow({0, 0, 0})) << "nothing";
    EXPECT_FALSE(isSlow({1, 20000, 100}, 0)) << "no rate is asked for";
    after = {};
    after.written = {1, 20000, 100};
    EXPECT_TRUE(loadBetween(before, after, 1, 300)->slow) << "writing";
}

TEST(Top, ARowOfEightyColumnsHasAllFigures)
{
    const std::string text = row(location(), 80);
    EXPECT_EQ(text, "1  Raid A                   812.4        95.0     3.1    no    1.2 TB     95 min");
    EXPECT_EQ(columnsOf(text), 80U);
}

TEST(Top, EveryWidthIsFilledExactly)
{
    LocationLoad gone =
        location("Projekt \u00e4\u4e2d\u6587 mit einem langen Namen, der nirgends hineinpasst");
    gone.online = false;
    for (unsigned width = 1; width < 200; ++width)
        for (const TopLine& line : topTable({location(), gone}, width))
            EXPECT_EQ(columnsOf(line.text), width) << line.text;
}

TEST(Top, FreeSpaceIsTheLastFigureToGo)
{
    EXPECT_THAT(row(location(), 60), Not(HasSubstr("3.1")));
    EXPECT_THAT(row(location(), 40), HasSubstr("95 min"));
    EXPECT_THAT(row(location(), 22), HasSubstr("1.2 TB"));
    EXPECT_THAT(row(location(), 22), Not(HasSubstr("95 min")));
}

TEST(Top, TheTimeLeftIsToldInAFittingUnit)
{
    LocationLoad load = location();
    load.minutes = -1;
    EXPECT_THAT(row(load, 80), HasSubstr("full"));
    load.minutes = 60 * 24 * 100;
    EXPECT_THAT(row(load, 80), HasSubstr("100 days"));
    for (const auto& none :
         {std::optional<std::int32_t>(), std::optional(std::numeric_limits<std::int32_t>::max())}) {
        load.minutes = none;
        EXPECT_TRUE(row(load, 80).ends_with(" -")) << row(load, 80);
    }
}

TEST(Top, SlowAndOfflineLocationsStandOut)
{
    LocationLoad load = location();
    load.load->slow = true;
    EXPECT_EQ(topTable({load}, 80)[1].style, TopLine::Style::slow);
    EXPECT_THAT(row(load, 80), HasSubstr("SLOW"));
    load.online = false;
    EXPECT_EQ(topTable({load}, 80)[1].style, TopLine::Style::offline);
    EXPECT_TRUE(row(load, 80).ends_with(" offline"));
    EXPECT_THAT(row(load, 80), Not(HasSubstr("TB")));
}

TEST(Top, WhatATerminalWouldTakeForACommandBecomesQuestionMarks)
{
    EXPECT_EQ(printable("a\x1b]0;x\x07\xc2\x9b\xff\t\u00e9"), "a?]0;x????\u00e9");
}

TEST(Top, WideAndCombiningSignsAreCountedAsTheyAreShown)
{
    EXPECT_EQ(columnsOf(std::string("abc")), 3U);
    EXPECT_EQ(columnsOf(std::string("\u4e2d\u6587")), 4U);
    EXPECT_EQ(columnsOf(std::string("e\u0301")), 1U);
    EXPECT_EQ(fitted("\u4e2d\u6587\u4e2d", 4), "\u4e2d\u2026 ");
    EXPECT_EQ(fitted("abc", 5), "abc  ");
    EXPECT_EQ(fittedRight("abc", 5), "  abc");
    EXPECT_EQ(fitted("abcdef", 3), "ab\u2026");
    EXPECT_EQ(fitted("abc", 0), "");
}
