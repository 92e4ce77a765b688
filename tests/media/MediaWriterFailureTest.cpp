// What a recording becomes when the platform fails it, at every call that can fail.

#include "RecordingHelpers.h"
#include "os/Codes.h"
#include "os/testing/ForwardingOS.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

using fake::Op;
using testing::HasSubstr;

namespace {

// --- one recording with one planned failure

class Attempt
{
public:
    explicit Attempt(const RandomWrites& writes) : writes_(writes) {}

    void run(const fake::Fault& fault)
    {
        FakeOS os;
        {
            const ScopedOS installed(os);
            os.threads().useRealThreads();
            os.transfers().setAutomatic(true);
            os.files().addDrive(L"/m/");
            os.files().addFolder(L"/m/Material");
            os.files().addFile(neighbour, "another's");
            FsysInitialize();
            os.faults().add(fault);
            record();
            fired = os.faults().fired();
            file = os.files().has(path) ? std::optional(os.files().contents(path)) : std::nullopt;
            unfinished = os.files().has(partial) ? std::optional(os.files().contents(partial)) : std::nullopt;
            EXPECT_EQ("another's", os.files().contents(neighbour));
            FsysUninitialize(Shutdown::eNormalExit);
            EXPECT_EQ(fake::Live{}, os.live());
        }
        check();
    }

    unsigned fired = 0;
    MediaRecording recorded;
    std::optional<std::string> file;        // under the final name
    std::optional<std::string> unfinished;  // under the other one

private:
    void record()
    {
        MediaWriterOptions options;
        options.stallLimitMs = 0;
        options.bytesInFlight = 3 * mebibyte;
        MediaWriter writer(path, options);
        opened_ = writer.isOpen();
        bool failedBefore = !opened_;
        for (std::size_t i = 0; i < writes_.count(); ++i) {
            const bool written = writer.write(writes_[i]);
            EXPECT_FALSE(failedBefore && written) << "a failure was forgotten";
            EXPECT_EQ(!written, static_cast<bool>(writer.error()));
            failedBefore = !written;
            accepted_ += written ? writes_[i].size() : 0;
            if (i % 10 == 9) {
                const bool flushed = writer.flush();
                EXPECT_FALSE(failedBefore && flushed) << "a failure was forgotten";
                EXPECT_EQ(!flushed, static_cast<bool>(writer.error()));
                failedBefore = !flushed;
                flushed_ = flushed ? accepted_ : flushed_;
            }
        }
        recorded = writer.finish();
    }
    void check() const
    {
        EXPECT_EQ(!recorded.complete, static_cast<bool>(recorded.error)) << recorded.error.text;
        EXPECT_EQ(recorded.hasFinalName, file.has_value());
        EXPECT_FALSE(file && unfinished);
        EXPECT_TRUE(writes_.isWholeEnd(recorded.bytes)) << recorded.bytes;
        EXPECT_GE(recorded.bytes, flushed_) << "what was flushed is lost";
        EXPECT_LE(recorded.bytes, accepted_) << "what was refused is there";
        const std::optional<std::string>& left = file ? file : unfinished;
        EXPECT_EQ(left.has_value(), !recorded.path.empty());
        EXPECT_EQ(!left || recorded.hasFinalName ? path : partial, left ? recorded.path : path);
        EXPECT_TRUE(!left || *left == writes_.all().substr(0, recorded.bytes)) << recorded.bytes;
        EXPECT_TRUE(!recorded.complete || recorded.bytes == writes_.all().size());
        EXPECT_TRUE(opened_ || !left);
    }

    static inline const LightweightString<wchar_t> path = L"/m/Material/shot.mov";
    static inline const LightweightString<wchar_t> partial = L"/m/Material/shot.mov.partial";
    static inline const LightweightString<wchar_t> neighbour = L"/m/Material/other.mov.partial";

    const RandomWrites& writes_;
    bool opened_ = false;
    std::size_t accepted_ = 0;
    std::size_t flushed_ = 0;
};

class MediaWriterFaults : public testing::Test
{
protected:
    // Fails the first, second, third ... call of op until a recording gets through; how many there were.
    unsigned failEach(fake::Fault fault)
    {
        for (fault.first = 1;; ++fault.first) {
            SCOPED_TRACE(std::string(nameOf(fault.op)) + " number " + std::to_string(fault.first));
            Attempt attempt(writes_);
            attempt.run(fault);
            if (attempt.fired == 0) {
                EXPECT_TRUE(attempt.recorded.complete);
                return fault.first - 1;
            }
            each_(attempt);
            if (HasFailure())
                return 0;
        }
    }
    void afterEach(std::function<void(const Attempt&)> each) { each_ = std::move(each); }

    const RandomWrites writes_{31, 60, 500'000};

private:
    std::function<void(const Attempt&)> each_ = [](const Attempt& attempt) {
        EXPECT_FALSE(attempt.recorded.complete);
    };
};

constexpr unsigned broken = platformErrorBase + EIO;
constexpr unsigned full = platformErrorBase + ENOSPC;

}  // namespace

TEST_F(MediaWriterFaults, TransfersThatFail)
{
    afterEach([](const Attempt& attempt) {
        EXPECT_EQ(MediaErrorCode::writeFailed, attempt.recorded.error.code);
        EXPECT_EQ(broken, attempt.recorded.error.platformCode);
        EXPECT_FALSE(attempt.recorded.hasFinalName);
    });
    EXPECT_GE(failEach({.op = Op::completion, .code = broken}), 3U);
}

TEST_F(MediaWriterFaults, TransfersThatTheDiskHasNoRoomFor)
{
    afterEach([](const Attempt& attempt) {
        // The room that one transfer did not find is there for the smaller writes that follow.
        EXPECT_EQ(MediaErrorCode::diskFull, attempt.recorded.error.code);
        EXPECT_TRUE(attempt.recorded.hasFinalName);
    });
    EXPECT_GE(failEach({.op = Op::completion, .code = full}), 3U);
}

TEST_F(MediaWriterFaults, TransfersThatCannotBeStarted)
{
    EXPECT_GE(failEach({.op = Op::asyncWrite, .code = broken}), 3U);
    EXPECT_GE(failEach({.op = Op::asyncWrite, .code = full}), 3U);
}

TEST_F(MediaWriterFaults, WritesOfTheRestThatFail)
{
    EXPECT_GE(failEach({.op = Op::write, .code = broken}), 3U);
    EXPECT_GE(failEach({.op = Op::write, .code = broken, .bytes = 1000}), 3U);
    EXPECT_GE(failEach({.op = Op::write, .code = full, .bytes = 1000}), 3U);
}

TEST_F(MediaWriterFaults, FlushesThatFail)
{
    afterEach([this](const Attempt& attempt) {
        EXPECT_EQ(MediaErrorCode::flushFailed, attempt.recorded.error.code);
        EXPECT_TRUE(attempt.unfinished);
        EXPECT_TRUE(writes_.isWholeEnd(attempt.unfinished->size()));
    });
    EXPECT_EQ(7U, failEach({.op = Op::flush, .code = broken}));
    EXPECT_EQ(7U, failEach({.op = Op::flush, .code = full}));
}

TEST_F(MediaWriterFaults, OpensThatFail)
{
    // The last one looks who has the unfinished name. A recording does without it.
    afterEach(
        [](const Attempt& attempt) { EXPECT_NE(attempt.recorded.complete, attempt.recorded.path.empty()); });
    EXPECT_EQ(4U, failEach({.op = Op::open, .code = platformErrorBase + EMFILE}));
    EXPECT_EQ(4U, failEach({.op = Op::open, .code = full}));
    EXPECT_EQ(4U, failEach({.op = Op::open, .code = broken, .closedHandle = true}));
}

TEST_F(MediaWriterFaults, RenamesThatFail)
{
    afterEach([this](const Attempt& attempt) {
        EXPECT_EQ(MediaErrorCode::renameFailed, attempt.recorded.error.code);
        EXPECT_EQ(writes_.all().size(), attempt.recorded.bytes);
        EXPECT_TRUE(attempt.unfinished);
    });
    EXPECT_EQ(1U, failEach({.op = Op::renameFile, .code = broken}));
}

TEST_F(MediaWriterFaults, MemoryThatIsMissing)
{
    afterEach([](const Attempt& attempt) {
        // The engine does without its own.
        EXPECT_TRUE(attempt.recorded.complete || attempt.recorded.error.code == MediaErrorCode::noMemory);
    });
    EXPECT_GE(failEach({.op = Op::allocatePages, .code = platformErrorBase + ENOMEM}), 3U);
}

// Some of these are asked by the engine, which can do without an answer.
TEST_F(MediaWriterFaults, QuestionsThatAreNotAnswered)
{
    afterEach([](const Attempt&) {});
    EXPECT_GE(failEach({.op = Op::getInfo, .code = broken}), 2U);
    EXPECT_GE(failEach({.op = Op::claim, .code = broken}), 1U);
    EXPECT_GE(failEach({.op = Op::attach, .code = broken}), 1U);
}

// --- single failures, looked at closely

namespace {

class MediaWriterFailure : public FakeRecordingTest
{
protected:
    // Writes count writes of size bytes, as long as they are taken; how many were.
    unsigned writeMany(MediaWriter& writer, unsigned count, std::size_t size)
    {
        unsigned taken = 0;
        while (taken < count && writer.write(bytesOf(all).subspan(taken * size, size)))
            ++taken;
        return taken;
    }

    // REQUIRES: transfers are held.
    void failWhenWaitedFor(unsigned code)
    {
        os.clock().setIdleHandler([this, code] { return os.transfers().failNext(code); });
    }

    const std::string all = noise(12 * mebibyte);
};

}  // namespace

TEST_F(MediaWriterFailure, TheNextCallTellsTheFirstFailureAndEveryCallAfterIt)
{
    os.transfers().setAutomatic(false);
    MediaWriter writer(path, options());
    EXPECT_EQ(3U, writeMany(writer, 3, mebibyte));
    EXPECT_TRUE(os.transfers().awaitHeld(3));
    EXPECT_TRUE(os.transfers().failAt(1, broken));
    EXPECT_TRUE(os.transfers().failAt(1, full));
    EXPECT_FALSE(writer.write(bytesOf("x")));
    EXPECT_EQ(MediaErrorCode::writeFailed, writer.error().code);
    EXPECT_EQ(broken, writer.error().platformCode);
    EXPECT_THAT(writer.error().text, HasSubstr("Input/output error"));
    EXPECT_FALSE(writer.flush());
    EXPECT_EQ(broken, writer.error().platformCode);
    os.transfers().completeAll();
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(broken, recorded.error.platformCode);
    EXPECT_EQ(mebibyte, recorded.bytes);
    EXPECT_TRUE(contents(partial) == all.substr(0, mebibyte));
}

TEST_F(MediaWriterFailure, AWriteThatWaitedWhenTheDiskFailedIsNotInTheFile)
{
    os.transfers().setAutomatic(false);
    MediaWriterOptions narrow = options();
    narrow.bytesInFlight = 2 * mebibyte;
    MediaWriter writer(path, narrow);
    EXPECT_TRUE(writer.write(bytesOf(all).first(mebibyte / 2)));
    os.clock().setIdleHandler([&] {
        return os.transfers().accepted() >= 3 ? os.transfers().failNext(full) : os.transfers().completeNext();
    });
    EXPECT_FALSE(writer.write(bytesOf(all).subspan(mebibyte / 2, 6 * mebibyte)));
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(MediaErrorCode::diskFull, recorded.error.code);
    EXPECT_EQ(mebibyte / 2, recorded.bytes);
    EXPECT_TRUE(recorded.hasFinalName);
    EXPECT_TRUE(contents(path) == all.substr(0, mebibyte / 2));
}

TEST_F(MediaWriterFailure, AfterAGapOnlyWhatLiesBeforeItIsKept)
{
    os.transfers().setAutomatic(false);
    MediaWriter writer(path, options());
    EXPECT_EQ(5U, writeMany(writer, 5, 700'000));  // 3 whole blocks and a rest
    EXPECT_TRUE(os.transfers().awaitHeld(3));
    os.transfers().failAt(1, broken);
    os.transfers().completeAll();
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(700'000U, recorded.bytes);
    EXPECT_FALSE(recorded.hasFinalName);
    EXPECT_TRUE(contents(partial) == all.substr(0, 700'000));
}

TEST_F(MediaWriterFailure, NothingIsLeftWhenNoWholeWriteReachedTheDisk)
{
    os.transfers().setAutomatic(false);
    os.clock().setIdleHandler([&] { return os.transfers().failNext(broken); });
    MediaWriter writer(path, options());
    EXPECT_TRUE(writer.write(bytesOf(all).first(3 * mebibyte)));
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(MediaErrorCode::writeFailed, recorded.error.code);
    EXPECT_EQ(0U, recorded.bytes);
    EXPECT_TRUE(recorded.path.empty());
    EXPECT_FALSE(os.files().has(partial));
    EXPECT_FALSE(os.files().has(path));
}

TEST_F(MediaWriterFailure, WhatWasFlushedStaysThoughItsBlockFailsLater)
{
    os.transfers().setAutomatic(false);
    MediaWriter writer(path, options());
    EXPECT_TRUE(writer.write(bytesOf(all).first(5000)));
    EXPECT_TRUE(writer.flush());
    EXPECT_TRUE(writer.write(bytesOf(all).subspan(5000, 2 * mebibyte)));
    os.clock().setIdleHandler([&] { return os.transfers().failNext(broken); });
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(5000U, recorded.bytes);
    EXPECT_TRUE(contents(partial) == all.substr(0, 5000));
}

// --- full disks

TEST_F(MediaWriterFailure, AFullDiskEndsARecordingAtTheLastWholeWriteWhereverItIs)
{
    constexpr std::size_t writeBytes = 300'000;
    for (std::size_t room :
         {std::size_t{0}, std::size_t{1}, writeBytes - 1, writeBytes, mebibyte - 1, mebibyte, mebibyte + 1,
          std::size_t{1'500'000}, 2 * mebibyte + 512, 4 * writeBytes * 2}) {
        SCOPED_TRACE(room);
        const unsigned roomBlocks = static_cast<unsigned>(room / mebibyte);
        // Whole blocks as long as they fit; then nothing but what the rest of the room holds.
        os.faults().clear();
        os.faults().add({Op::completion, full, roomBlocks + 1, fake::Fault::forEver});
        os.faults().add({Op::write, full, 1, 1, {}, room % mebibyte});
        os.faults().add({Op::write, full, 1, fake::Fault::forEver});
        MediaWriter writer(path, options());
        writeMany(writer, 12, writeBytes);
        const MediaRecording recorded = writer.finish();
        const std::size_t kept = room / writeBytes * writeBytes;
        EXPECT_EQ(MediaErrorCode::diskFull, recorded.error.code);
        EXPECT_FALSE(recorded.complete);
        EXPECT_EQ(kept, recorded.bytes);
        EXPECT_EQ(kept != 0, recorded.hasFinalName);
        EXPECT_EQ(kept != 0, os.files().has(path));
        EXPECT_TRUE(contents(path) == all.substr(0, kept));
        EXPECT_FALSE(os.files().has(partial));
        os.files().remove(path);
    }
}

TEST_F(MediaWriterFailure, WhatIsLeftOfTheRoomIsUsedThoughTheDiskRefusesLargeWritesAsAWhole)
{
    struct Small : ForwardingFile
    {
        Small(const Qz::Ptr<iFile>& target, std::uint64_t sizeMax) : ForwardingFile(target), sizeMax_(sizeMax)
        {}
        bool write(std::uint64_t position, const void* buffer, std::size_t count, std::size_t* done) override
        {
            if (position + count <= sizeMax_)
                return ForwardingFile::write(position, buffer, count, done);
            *done = 0;
            setLastErrno(ENOSPC);
            return false;
        }
        const std::uint64_t sizeMax_;
    };
    struct SmallDisk : ForwardingFileManager
    {
        using ForwardingFileManager::ForwardingFileManager;
        Qz::Ptr<iFile> open(const Path& name, unsigned access, unsigned creation, unsigned share,
                            unsigned mode) override
        {
            const Qz::Ptr<iFile> file = target().open(name, access, creation, share, mode);
            return creation == os::creationNew ? Qz::Ptr<iFile>(new Small(file, 700'000)) : file;
        }
    };
    ForwardingOS forwarding(os);
    SmallDisk files(*os.getFileManager());
    forwarding.use(files);
    const ScopedOS small(forwarding);
    os.faults().failAlways(Op::completion, full);
    MediaWriter writer(path, options());
    writeMany(writer, 400, 3000);
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(699'000U, recorded.bytes);
    EXPECT_TRUE(contents(path) == all.substr(0, 699'000));
}

TEST_F(MediaWriterFailure, QuotaAndLargestFileAreFullDisksToo)
{
    for (const int error : {ENOSPC, EDQUOT, EFBIG}) {
        os.faults().failNext(Op::write, errorFromErrno(error));
        MediaWriter writer(path, options());
        EXPECT_TRUE(writer.write(bytesOf("x")));
        EXPECT_EQ(MediaErrorCode::diskFull, writer.finish().error.code) << error;
        os.files().remove(path);
    }
}

TEST_F(MediaWriterFailure, AFullDisksFileThatCannotBeCutOrFlushedKeepsItsUnfinishedName)
{
    os.transfers().setAutomatic(false);
    for (const Op op : {Op::setSize, Op::flush}) {
        SCOPED_TRACE(nameOf(op));
        os.faults().clear();
        os.faults().failNext(op, broken);
        MediaWriter writer(path, options());
        EXPECT_EQ(3U, writeMany(writer, 3, mebibyte));
        failWhenWaitedFor(full);
        const MediaRecording recorded = writer.finish();
        EXPECT_EQ(MediaErrorCode::diskFull, recorded.error.code);
        EXPECT_FALSE(recorded.hasFinalName);
        EXPECT_EQ(partial, recorded.path);
        EXPECT_TRUE(os.files().has(partial));
        EXPECT_FALSE(os.files().has(path));
        os.files().remove(partial);
    }
}

// What the handle of our own wrote found room in memory, and none on the disk.
TEST_F(MediaWriterFailure, AFullDiskThatIsNoticedByTheFlushKeepsTheWholeWritesInTheBlocksBefore)
{
    os.faults().add({Op::completion, full, 3, fake::Fault::forEver});
    os.faults().add({.op = Op::flush, .code = full, .count = 12});  // each half down to 512 bytes
    MediaWriter writer(path, options());
    writeMany(writer, 12, 300'000);
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(MediaErrorCode::diskFull, recorded.error.code);
    EXPECT_EQ(1'800'000U, recorded.bytes);  // of 2 blocks
    EXPECT_TRUE(recorded.hasFinalName);
    EXPECT_TRUE(contents(path) == all.substr(0, 1'800'000));
}

TEST_F(MediaWriterFailure, AFullDiskThatRefusesTheSecondFlushAsWellLeavesAnUnfinishedFile)
{
    os.faults().add({Op::completion, full, 3, fake::Fault::forEver});
    os.faults().add({.op = Op::flush, .code = full, .count = 14});
    MediaWriter writer(path, options());
    writeMany(writer, 12, 300'000);
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(MediaErrorCode::diskFull, recorded.error.code);
    EXPECT_EQ(1'800'000U, recorded.bytes);
    EXPECT_EQ(partial, recorded.path);
    EXPECT_TRUE(contents(partial) == all.substr(0, 1'800'000));
}

TEST_F(MediaWriterFailure, BlocksBehindTheOneThatFoundNoRoomGiveTheirsBackToIt)
{
    os.transfers().setAutomatic(false);
    MediaWriter writer(path, options());
    EXPECT_EQ(3U, writeMany(writer, 3, mebibyte));
    EXPECT_TRUE(os.transfers().awaitHeld(3));
    EXPECT_TRUE(os.transfers().failAt(1, full));
    EXPECT_TRUE(os.transfers().completeNext());
    EXPECT_TRUE(os.transfers().completeNext());
    os.log().clear();
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(MediaErrorCode::diskFull, recorded.error.code);
    EXPECT_EQ(3 * mebibyte, recorded.bytes);
    EXPECT_TRUE(contents(path) == all.substr(0, 3 * mebibyte));
    const std::vector<std::string> calls = os.log().lines({Op::setSize, Op::write});
    ASSERT_GT(calls.size(), 2U);
    EXPECT_THAT(calls[0],
                testing::AllOf(testing::StartsWith("setSize"), HasSubstr(std::to_string(mebibyte))));
    EXPECT_THAT(calls[1], testing::StartsWith("write"));
}

TEST_F(MediaWriterFailure, WhereBlocksAreBufferedTooOnlyWhatWasFlushedIsSureToHaveFoundRoom)
{
    const Path file = L"/net/shot.mov";
    os.files().addDrive({.type = iDiskDrive::eNetwork, .root = L"/net/"});
    FsysSetNetworkWriteCaching(true);
    MediaWriter writer(file, options());
    EXPECT_EQ(1U, writeMany(writer, 1, 300'000));
    EXPECT_TRUE(writer.flush());
    EXPECT_TRUE(writer.write(bytesOf(all).subspan(300'000, 400'000)));
    EXPECT_TRUE(writer.write(bytesOf(all).subspan(700'000, 2 * mebibyte)));
    os.faults().failNext(Op::write, full);
    os.faults().failNext(Op::flush, full);
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(MediaErrorCode::diskFull, recorded.error.code);
    EXPECT_EQ(300'000U, recorded.bytes);
    EXPECT_TRUE(recorded.hasFinalName);
    EXPECT_TRUE(contents(file) == all.substr(0, 300'000));
}

// There each block is written at its place, by the thread that fills it.
TEST_F(MediaWriterFailure, WhereWritesAreGatheredEachBlockMayFail)
{
    os.files().addDrive({.type = iDiskDrive::eNetwork, .root = L"/net/"});
    FsysSetNetworkWriteCaching(true);
    const std::string bytes = noise(3 * mebibyte + 99);
    for (unsigned block = 1; block <= 4; ++block) {
        SCOPED_TRACE(block);
        MediaWriter writer(L"/net/shot.mov", options());
        os.faults().failNth(Op::write, block, errorFromErrno(EIO));
        for (std::size_t at = 0; at < bytes.size(); at += mebibyte)
            writer.write(bytesOf(bytes).subspan(at, std::min(mebibyte, bytes.size() - at)));
        const MediaRecording recorded = writer.finish();
        EXPECT_FALSE(recorded.complete);
        EXPECT_EQ(MediaErrorCode::writeFailed, recorded.error.code);
        EXPECT_EQ(errorFromErrno(EIO), recorded.error.platformCode);
        EXPECT_EQ((block - 1) * mebibyte, recorded.bytes);
        EXPECT_EQ(block, os.faults().fired(Op::write));
        EXPECT_EQ(recorded.path.empty(), recorded.bytes == 0);
        if (!recorded.path.empty()) {
            EXPECT_TRUE(contents(recorded.path) == bytes.substr(0, recorded.bytes));
            os.files().remove(recorded.path);
        }
        os.faults().clear();
    }
}

TEST_F(MediaWriterFailure, AFlushThatFindsNoRoomAndNoBlockBeforeRemovesNothing)
{
    os.faults().failAlways(Op::completion, full);
    os.faults().failAlways(Op::flush, full);
    MediaWriter writer(path, options());
    writeMany(writer, 4, 300'000);
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(MediaErrorCode::diskFull, recorded.error.code);
    EXPECT_EQ(0U, recorded.bytes);
    EXPECT_EQ(partial, recorded.path);
    EXPECT_TRUE(os.files().has(partial));
}

TEST_F(MediaWriterFailure, AFullDiskBeforeAFileOfTheSameNameLeavesBoth)
{
    os.transfers().setAutomatic(false);
    MediaWriter writer(path, options());
    EXPECT_EQ(2U, writeMany(writer, 2, mebibyte));
    failWhenWaitedFor(full);
    os.files().addFile(path, "another's");
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(MediaErrorCode::diskFull, recorded.error.code);
    EXPECT_EQ(partial, recorded.path);
    EXPECT_EQ("another's", contents(path));
    EXPECT_TRUE(contents(partial) == all.substr(0, 2 * mebibyte));
}

TEST_F(MediaWriterFailure, AForgottenRecordingOnAFullDiskGetsNoName)
{
    os.transfers().setAutomatic(false);
    {
        MediaWriter writer(path, options());
        EXPECT_EQ(2U, writeMany(writer, 2, mebibyte));
        failWhenWaitedFor(full);
    }
    EXPECT_FALSE(os.files().has(path));
    EXPECT_TRUE(contents(partial) == all.substr(0, 2 * mebibyte));
}

// --- disks that take nothing

namespace {

class MediaWriterStall : public MediaWriterFailure
{
protected:
    MediaWriterStall()
    {
        os.transfers().setAutomatic(false);
        narrow.bytesInFlight = 2 * mebibyte;
        narrow.stallLimitMs = 5000;
    }
    MediaWriterOptions narrow;
};

}  // namespace

TEST_F(MediaWriterStall, ADiskThatTakesNothingForTooLongIsGivenUp)
{
    MediaWriter writer(path, narrow);
    EXPECT_EQ(2U, writeMany(writer, 2, mebibyte));
    EXPECT_TRUE(os.transfers().awaitHeld(2));
    const double started = os.clock().msecsPrecise();
    EXPECT_FALSE(writer.write(bytesOf("x")));
    EXPECT_EQ(MediaErrorCode::givenUp, writer.error().code);
    EXPECT_EQ(5000.0, os.clock().msecsPrecise() - started);
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(MediaErrorCode::givenUp, recorded.error.code);
    EXPECT_FALSE(recorded.hasFinalName);
    EXPECT_EQ(partial, recorded.path);
    EXPECT_EQ(0U, recorded.bytes);
    // What the disk takes in the end is not lost, and its memory was there until then.
    EXPECT_EQ(2U, os.transfers().completeAll());
    EXPECT_TRUE(contents(partial) == all.substr(0, 2 * mebibyte));
    stopEngine();
    EXPECT_EQ(0U, os.live().pages);
    EXPECT_EQ(0U, os.live().files);
}

TEST_F(MediaWriterStall, ADiskThatComesBackAtTheEndLosesNothingThatWasTaken)
{
    MediaWriter writer(path, narrow);
    EXPECT_EQ(2U, writeMany(writer, 2, mebibyte - 1));
    EXPECT_TRUE(writer.write(bytesOf("..")));
    EXPECT_TRUE(os.transfers().awaitHeld(2));
    EXPECT_FALSE(writer.write(bytesOf("x")));
    os.clock().after(1000, [&] { os.transfers().completeAll(); });
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(MediaErrorCode::givenUp, recorded.error.code);
    EXPECT_EQ(2 * mebibyte, recorded.bytes);
    EXPECT_EQ(2 * mebibyte, os.files().size(partial));
}

TEST_F(MediaWriterStall, ASlowDiskIsNotGivenUpAsLongAsSomethingEnds)
{
    MediaWriter writer(path, narrow);
    EXPECT_EQ(2U, writeMany(writer, 2, mebibyte));
    for (unsigned i = 2; i < 8; ++i) {
        EXPECT_TRUE(os.transfers().awaitHeld(2));
        os.clock().after(4000, [&] { os.transfers().completeNext(); });
        EXPECT_TRUE(writer.write(bytesOf(all).subspan(i * mebibyte, mebibyte)));
    }
    EXPECT_GE(writer.counters().worstWaitMs, 4000.0);
    EXPECT_TRUE(os.transfers().awaitHeld(2));
    os.clock().after(1000, [&] { os.transfers().completeAll(); });
    EXPECT_TRUE(writer.finish().complete);
    EXPECT_TRUE(contents(path) == all.substr(0, 8 * mebibyte));
}

TEST_F(MediaWriterStall, AnAbandonedRecordingDoesNotWaitForEverForAStuckDisk)
{
    MediaWriter writer(path, narrow);
    EXPECT_EQ(2U, writeMany(writer, 2, mebibyte));
    EXPECT_TRUE(os.transfers().awaitHeld(2));
    writer.abandon();
    EXPECT_FALSE(os.files().has(partial));
    EXPECT_EQ(2U, os.transfers().completeAll());
    EXPECT_FALSE(os.files().has(partial));
}

// --- meddling from outside

TEST_F(MediaWriterFailure, AFileThatSomebodyCutOffMeanwhileIsNotCalledComplete)
{
    MediaWriter writer(path, options());
    EXPECT_EQ(2U, writeMany(writer, 2, mebibyte));
    EXPECT_TRUE(writer.flush());
    const Qz::Ptr<iFile> other = os.files().open(partial, os::accessReadWrite, 0, os::shareAll, 0);
    EXPECT_TRUE(other->setSize(100));
    const MediaRecording recorded = writer.finish();
    EXPECT_FALSE(recorded.complete);
    EXPECT_FALSE(recorded.hasFinalName);
    EXPECT_EQ(MediaErrorCode::writeFailed, recorded.error.code);
    EXPECT_EQ(100U, recorded.bytes);
    EXPECT_EQ(100U, os.files().size(partial));
}

TEST_F(MediaWriterFailure, AFileThatSomebodyCutOffBehindTheLastBlockHoldsTheWholeWritesBefore)
{
    MediaWriter writer(path, options());
    EXPECT_EQ(15U, writeMany(writer, 15, 100'000));  // a block and a rest
    os.faults().failNext(Op::flush, broken);
    EXPECT_FALSE(writer.flush());
    const Qz::Ptr<iFile> other = os.files().open(partial, os::accessReadWrite, 0, os::shareAll, 0);
    EXPECT_TRUE(other->setSize(1'350'000));
    EXPECT_EQ(1'300'000U, writer.finish().bytes);
}

TEST_F(MediaWriterFailure, AFileThatSomebodyRemovedMeanwhileIsNotCalledComplete)
{
    MediaWriter writer(path, options());
    EXPECT_EQ(2U, writeMany(writer, 2, mebibyte));
    os.files().remove(partial);
    const MediaRecording recorded = writer.finish();
    EXPECT_FALSE(recorded.complete);
    EXPECT_FALSE(recorded.hasFinalName);
    EXPECT_EQ(MediaErrorCode::fileVanished, recorded.error.code);
    EXPECT_THAT(recorded.error.text, HasSubstr("shot.mov.partial: the unfinished file was removed"));
    EXPECT_TRUE(recorded.path.empty());
    EXPECT_EQ(0U, recorded.bytes);
}

// However the first one ends, the file of the second one, which has the same name, is not its own.
TEST_F(MediaWriterFailure, ARecordingThatBeganUnderTheNameOfARemovedOneIsLeftAlone)
{
    const std::vector<std::function<void(MediaWriter&)>> endings = {
        [](MediaWriter& first) {
            const MediaRecording recorded = first.finish();
            EXPECT_FALSE(recorded.complete);
            EXPECT_EQ(MediaErrorCode::fileVanished, recorded.error.code);
            EXPECT_TRUE(recorded.path.empty());
        },
        [](MediaWriter& first) { first.abandon(); },
        [](MediaWriter&) {},
    };
    const std::vector<std::function<void()>> removals = {
        [this] { os.files().remove(partial); },
        [this] { EXPECT_TRUE(os.getFileManager()->renameFile(partial, L"/m/Material/elsewhere")); },
    };
    for (const std::size_t bytes : {std::size_t{0}, std::size_t{5}, 2 * mebibyte})
        for (const auto& end : endings)
            for (const auto& remove : removals) {
                auto first = std::make_unique<MediaWriter>(path, options());
                EXPECT_TRUE(first->write(bytesOf(all).first(bytes)));
                remove();
                MediaWriter second(path, options());
                EXPECT_TRUE(second.write(bytesOf("the second")));
                end(*first);
                first.reset();
                EXPECT_TRUE(os.files().has(partial));
                EXPECT_FALSE(os.files().has(path));
                EXPECT_TRUE(second.finish().complete);
                EXPECT_EQ("the second", contents(path));
                os.files().remove(path);
                os.files().remove(L"/m/Material/elsewhere");
            }
}

TEST_F(MediaWriterFailure, ARecordingThatFailedDoesNotClaimTheFileOfAnotherOne)
{
    os.faults().failAlways(Op::completion, broken);
    MediaWriter first(path, options());
    EXPECT_TRUE(first.write(bytesOf(all).first(5)));
    EXPECT_TRUE(first.flush());
    EXPECT_TRUE(first.write(bytesOf(all).first(mebibyte - 5)));
    os.files().remove(partial);
    os.files().addFile(partial, "another's");
    const MediaRecording recorded = first.finish();
    EXPECT_EQ(MediaErrorCode::writeFailed, recorded.error.code);
    EXPECT_TRUE(recorded.path.empty());
    EXPECT_EQ(0U, recorded.bytes);
    EXPECT_EQ("another's", contents(partial));
}

TEST_F(MediaWriterFailure, ARecordingThatCannotBeginDoesNotRemoveTheFileThatTookItsPlace)
{
    struct Replacing : ForwardingFileManager
    {
        Replacing(FakeOS& os, const Path& partial)
            : ForwardingFileManager(*os.getFileManager()), os_(os), partial_(partial)
        {}
        Qz::Ptr<iFile> open(const Path& name, unsigned access, unsigned creation, unsigned share,
                            unsigned mode) override
        {
            if (++opens_ != 2)
                return target().open(name, access, creation, share, mode);
            os_.files().remove(partial_);
            os_.files().addFile(partial_, "another's");
            setLastErrno(EIO);
            return {};
        }
        FakeOS& os_;
        const Path partial_;
        unsigned opens_ = 0;
    };
    ForwardingOS forwarding(os);
    Replacing files(os, partial);
    forwarding.use(files);
    const ScopedOS replacing(forwarding);
    const MediaWriter writer(path, options());
    EXPECT_FALSE(writer.isOpen());
    EXPECT_EQ("another's", contents(partial));
}

TEST_F(MediaWriterFailure, ARenameThatWasDoneButIsNotSafeYetIsToldAsSuch)
{
    ForwardingOS forwarding(os);
    UnsafeRenames files(*os.getFileManager());
    forwarding.use(files);
    MediaWriter writer(path, options());
    EXPECT_TRUE(writer.write(bytesOf("recorded")));
    MediaRecording recorded;
    {
        const ScopedOS unsafeRename(forwarding);
        recorded = writer.finish();
    }
    EXPECT_FALSE(recorded.complete);
    EXPECT_TRUE(recorded.hasFinalName);
    EXPECT_EQ(path, recorded.path);
    EXPECT_EQ(MediaErrorCode::renameFailed, recorded.error.code);
    EXPECT_EQ("recorded", contents(path));
}
