// libavformat's writes and seeks on the fake platform.

#include "av/AvOutput.h"
#include "av/AvError.h"
#include "media/RecordingHelpers.h"
#include "os/Codes.h"

#include <cerrno>
#include <cstdio>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
}

namespace {

class AvOutputTest : public FakeRecordingTest
{
protected:
    static void write(const AvOutput& output, const std::string& bytes)
    {
        avio_write(output.context(), reinterpret_cast<const unsigned char*>(bytes.data()),
                   static_cast<int>(bytes.size()));
    }
    static void writeAt(const AvOutput& output, std::int64_t place, const std::string& bytes)
    {
        ASSERT_EQ(place, avio_seek(output.context(), place, SEEK_SET));
        write(output, bytes);
    }
    void expectRecorded(AvOutput& output, const std::string& all)
    {
        const MediaRecording recorded = output.finish();
        EXPECT_TRUE(recorded.complete) << recorded.error.text;
        EXPECT_EQ(all.size(), recorded.bytes);
        EXPECT_TRUE(contents(path) == all);
        EXPECT_FALSE(os.files().has(partial));
    }
};

}  // namespace

TEST_F(AvOutputTest, BytesGrowUnderTheUnfinishedNameUntilTheEnd)
{
    const std::string all = noise(3 * mebibyte + 5);
    AvOutput output(path, options());
    ASSERT_TRUE(output.isOpen());
    write(output, all);
    EXPECT_TRUE(os.files().has(partial));
    EXPECT_FALSE(os.files().has(path));
    expectRecorded(output, all);
}

TEST_F(AvOutputTest, AHeaderIsPatchedAfterItHasReachedTheDisk)
{
    std::string all = noise(5 * mebibyte / 2);
    AvOutput output(path, options());
    write(output, all);
    writeAt(output, 28, "size");
    all.replace(28, 4, "size");
    writeAt(output, static_cast<std::int64_t>(all.size()), "table");
    expectRecorded(output, all + "table");
}

TEST_F(AvOutputTest, APatchMayRunOnOverTheEnd)
{
    std::string all = noise(200'000);
    AvOutput output(path, options());
    write(output, all);
    const std::string more = noise(100'000, 2);
    writeAt(output, 150'000, more);
    expectRecorded(output, all.substr(0, 150'000) + more);
}

TEST_F(AvOutputTest, SkippedPlacesAreZeros)
{
    const std::string head = noise(1000);
    AvOutput output(path, options());
    write(output, head);
    EXPECT_EQ(301'000, avio_skip(output.context(), 300'000));
    write(output, "tail");
    expectRecorded(output, head + std::string(300'000, '\0') + "tail");
}

TEST_F(AvOutputTest, TheSizeIsThatOfWhatWasWritten)
{
    const AvOutput output(path, options());
    write(output, noise(300'000));
    avio_flush(output.context());
    EXPECT_EQ(300'000, avio_size(output.context()));
    EXPECT_EQ(AVERROR(EINVAL), output.context()->seek(output.context()->opaque, -1, SEEK_SET));
    EXPECT_EQ(299'999, output.context()->seek(output.context()->opaque, -1, SEEK_END));
}

TEST_F(AvOutputTest, AFullDiskIsToldAndEndsInANamedFile)
{
    const std::string all = noise(3 * mebibyte);
    AvOutput output(path, options());
    write(output, all);
    avio_flush(output.context());
    os.faults().failAlways(fake::Op::asyncWrite, errorFromErrno(ENOSPC));
    for (int i = 0; i < 30 && output.context()->error == 0; ++i)
        write(output, all);
    EXPECT_EQ(AVERROR(ENOSPC), output.context()->error);
    EXPECT_EQ(MediaErrorCode::diskFull, output.error().code);
    os.faults().clear();
    const MediaRecording recorded = output.finish();
    EXPECT_FALSE(recorded.complete);
    EXPECT_TRUE(recorded.hasFinalName);
    EXPECT_EQ(MediaErrorCode::diskFull, recorded.error.code);
    EXPECT_GE(recorded.bytes, all.size());
    EXPECT_EQ(recorded.bytes, contents(path).size());
    EXPECT_TRUE(contents(path).substr(0, all.size()) == all);
}

TEST_F(AvOutputTest, APatchThatFailsIsToldAndLeavesTheRecordingUnfinished)
{
    AvOutput output(path, options());
    write(output, noise(5 * mebibyte / 2));
    avio_flush(output.context());
    os.faults().failNext(fake::Op::write, errorFromErrno(EIO));
    writeAt(output, 0, "head");
    avio_flush(output.context());
    EXPECT_EQ(AVERROR(EIO), output.context()->error);
    EXPECT_EQ(MediaErrorCode::writeFailed, output.error().code);
    EXPECT_FALSE(output.finish().hasFinalName);
    EXPECT_FALSE(os.files().has(path));
    EXPECT_TRUE(os.files().has(partial));
}

TEST_F(AvOutputTest, WithoutAnEndTheUnfinishedFileHoldsAllThatWasWritten)
{
    const std::string all = noise(100'001);
    {
        const AvOutput output(path, options());
        write(output, all);
    }
    EXPECT_TRUE(contents(partial) == all);
    EXPECT_FALSE(os.files().has(path));
}

TEST_F(AvOutputTest, AbandonedOutputLeavesNoFile)
{
    AvOutput output(path, options());
    write(output, noise(100'000));
    output.abandon();
    EXPECT_FALSE(os.files().has(partial));
    EXPECT_FALSE(output.finish().complete);
    EXPECT_FALSE(os.files().has(path));
}

TEST_F(AvOutputTest, WhatCannotBeBegunHasNoContextAndSaysWhy)
{
    os.files().addFile(path, "old");
    const AvOutput there(path, options());
    EXPECT_FALSE(there.isOpen());
    EXPECT_EQ(nullptr, there.context());
    EXPECT_EQ(MediaErrorCode::alreadyExists, there.error().code);
    os.files().remove(path);
    AvOutput without(path, options(), 0);
    EXPECT_FALSE(without.isOpen());
    EXPECT_EQ(MediaErrorCode::invalidArgument, without.error().code);
    EXPECT_EQ(MediaErrorCode::invalidArgument, without.finish().error.code);
    EXPECT_FALSE(os.files().has(partial));
}
