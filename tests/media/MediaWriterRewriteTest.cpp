// Bytes of a recording that are replaced after they were written.

#include "RecordingHelpers.h"
#include "common/TemporaryFolder.h"
#include "os/Codes.h"

#include <cstdio>
#include <optional>
#include <thread>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace {

class MediaWriterRewrite : public FakeRecordingTest
{
protected:
    // Begins a recording and writes that many bytes, a tenth of them at a time.
    void begin(std::size_t size)
    {
        all_ = noise(size, 7);
        writer_.emplace(path, options());
        for (std::size_t at = 0; at < size; at += size / 10)
            ASSERT_TRUE(writer_->write(bytesOf(all_).subspan(at, std::min(size / 10, size - at))));
    }
    bool rewrite(std::size_t offset, const std::string& text)
    {
        if (!writer_->rewrite(offset, bytesOf(text)))
            return false;
        all_.replace(offset, text.size(), text);
        return true;
    }
    void expectExact()
    {
        const MediaRecording recorded = writer_->finish();
        EXPECT_TRUE(recorded.complete) << recorded.error.text;
        EXPECT_EQ(all_.size(), recorded.bytes);
        EXPECT_TRUE(contents(path) == all_);
    }

    std::string all_;
    std::optional<MediaWriter> writer_;
};

}  // namespace

TEST_F(MediaWriterRewrite, BytesThatAreStillInMemoryAreReplaced)
{
    begin(10'000);
    EXPECT_TRUE(rewrite(0, "head"));
    EXPECT_TRUE(rewrite(9'996, "tail"));
    EXPECT_EQ("", contents(partial));
    expectExact();
}

TEST_F(MediaWriterRewrite, BytesThatAreOnTheDiskAreReplaced)
{
    begin(5 * mebibyte / 2);
    EXPECT_TRUE(rewrite(28, "head"));
    EXPECT_TRUE(rewrite(mebibyte - 2, "seam"));
    expectExact();
}

TEST_F(MediaWriterRewrite, ARangeThatIsPartlyOnTheDiskIsReplacedWhole)
{
    begin(5 * mebibyte / 2);
    EXPECT_TRUE(rewrite(2 * mebibyte - 5'000, noise(10'000, 9)));
    expectExact();
}

TEST_F(MediaWriterRewrite, TheLastByteOfAFullBlockIsReplaced)
{
    begin(2 * mebibyte);
    EXPECT_TRUE(rewrite(2 * mebibyte - 1, "!"));
    expectExact();
}

TEST_F(MediaWriterRewrite, TransfersThatAreUnderWayDoNotBringTheOldBytesBack)
{
    os.transfers().setAutomatic(false);
    begin(5 * mebibyte / 2);
    ASSERT_TRUE(os.transfers().awaitHeld(1));
    std::thread disk([this] {
        while (os.files().contents(partial).size() < 2 * mebibyte) {
            os.transfers().completeAll();
            std::this_thread::yield();
        }
    });
    EXPECT_TRUE(rewrite(0, "head"));
    disk.join();
    os.transfers().setAutomatic(true);
    expectExact();
}

TEST_F(MediaWriterRewrite, BytesThatWereFlushedAreReplacedByTheNextFlush)
{
    begin(3 * mebibyte / 2);
    ASSERT_TRUE(writer_->flush());
    EXPECT_TRUE(rewrite(4, "head"));
    EXPECT_TRUE(rewrite(all_.size() - 4, "tail"));
    ASSERT_TRUE(writer_->flush());
    EXPECT_TRUE(contents(partial) == all_);
    expectExact();
}

TEST_F(MediaWriterRewrite, WhatFollowsARewriteIsAppended)
{
    begin(3 * mebibyte / 2);
    EXPECT_TRUE(rewrite(0, "head"));
    const std::string more = noise(2 * mebibyte, 8);
    ASSERT_TRUE(writer_->write(bytesOf(more)));
    all_ += more;
    expectExact();
}

TEST_F(MediaWriterRewrite, ARangeThatWasNotWrittenIsRefusedAndNoFailure)
{
    begin(10'000);
    EXPECT_FALSE(rewrite(9'997, "tail"));
    EXPECT_FALSE(rewrite(10'001, ""));
    EXPECT_FALSE(rewrite(std::size_t{0} - 2, "tail"));
    EXPECT_TRUE(rewrite(10'000, ""));
    EXPECT_FALSE(writer_->error());
    expectExact();
    EXPECT_FALSE(writer_->rewrite(0, bytesOf("late")));
}

TEST_F(MediaWriterRewrite, ADiskThatRefusesLeavesTheRecordingUnfinished)
{
    begin(5 * mebibyte / 2);
    ASSERT_TRUE(writer_->flush());
    os.faults().failNext(fake::Op::write, errorFromErrno(EIO));
    EXPECT_FALSE(writer_->rewrite(0, bytesOf("head")));
    EXPECT_EQ(MediaErrorCode::writeFailed, writer_->error().code);
    const MediaRecording recorded = writer_->finish();
    EXPECT_FALSE(recorded.complete);
    EXPECT_EQ(partial, recorded.path);
    EXPECT_EQ(all_.size(), recorded.bytes);
    EXPECT_TRUE(contents(partial) == all_);
}

// The transfers have to end before; where one of them fails the recording has failed.
TEST_F(MediaWriterRewrite, ATransferThatFailsMeanwhileRefusesIt)
{
    os.transfers().setAutomatic(false);
    begin(5 * mebibyte / 2);
    ASSERT_TRUE(os.transfers().awaitHeld(2));
    std::thread disk([this] {
        EXPECT_TRUE(os.transfers().failNext(errorFromErrno(EIO)));
        EXPECT_TRUE(os.transfers().completeNext());
    });
    EXPECT_FALSE(writer_->rewrite(0, bytesOf("head")));
    disk.join();
    os.transfers().setAutomatic(true);
    EXPECT_EQ(MediaErrorCode::writeFailed, writer_->error().code);
    EXPECT_EQ(0U, os.log().count(fake::Op::write));
    const MediaRecording recorded = writer_->finish();
    EXPECT_FALSE(recorded.complete);
    EXPECT_EQ(0U, recorded.bytes);
}

TEST_F(MediaWriterRewrite, AFileThatCannotBeReadAgainHasNoHashAndIsWhole)
{
    all_ = noise(10'000, 7);
    MediaWriterOptions hashing = options();
    hashing.hash = true;
    writer_.emplace(path, hashing);
    ASSERT_TRUE(writer_->write(bytesOf(all_)));
    ASSERT_TRUE(rewrite(0, "head"));
    os.faults().failAlways(fake::Op::read, errorFromErrno(EIO));
    const MediaRecording recorded = writer_->finish();
    EXPECT_TRUE(recorded.complete) << recorded.error.text;
    EXPECT_EQ("", recorded.hash);
    EXPECT_TRUE(contents(path) == all_);
}

TEST(MediaWriterRewriteOnLinux, BytesAndHashAreThoseOfTheFile)
{
    FsysInitialize();
    const TemporaryFolder folder;
    std::string all = noise(7 * mebibyte + 99, 3);
    MediaWriterOptions options;
    options.hash = true;
    MediaWriter writer(wide(folder / "shot.mov"), options);
    for (std::size_t at = 0; at < all.size(); at += mebibyte / 3) {
        ASSERT_TRUE(writer.write(bytesOf(all).subspan(at, std::min(mebibyte / 3, all.size() - at))));
        const std::string change = noise(at / 100 + 1, static_cast<unsigned>(at));
        ASSERT_TRUE(writer.rewrite(at / 2, bytesOf(change)));
        all.replace(at / 2, change.size(), change);
    }
    const MediaRecording recorded = writer.finish();
    EXPECT_TRUE(recorded.complete) << recorded.error.text;
    EXPECT_TRUE(contentsOf(folder / "shot.mov") == all);
    const XXH128_hash_t hash = XXH3_128bits(all.data(), all.size());
    char text[33];
    std::snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(hash.high64),
                  static_cast<unsigned long long>(hash.low64));
    EXPECT_EQ(text, recorded.hash);
    FsysUninitialize(Shutdown::eNormalExit);
}
