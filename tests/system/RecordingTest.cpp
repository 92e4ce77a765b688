// Recordings on a small disk that gets full. Each suite runs on the file system that it is named after,
// mounted at $TMPDIR (with_file_system.sh).

#include "Qz/Utf8.h"
#include "fsys/FsysEntry.h"
#include "media/MediaWriter.h"
#include "os/LastError.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;

std::string noise(std::size_t size)
{
    std::mt19937_64 numbers(size);
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; i += sizeof(std::uint64_t)) {
        const std::uint64_t number = numbers();
        std::memcpy(bytes.data() + i, &number, std::min(sizeof number, size - i));
    }
    return bytes;
}

std::string contentsOf(const fs::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

class FullDiskRecording : public testing::Test
{
protected:
    FullDiskRecording() { FsysInitialize(); }
    ~FullDiskRecording() override
    {
        FsysUninitialize(Shutdown::eNormalExit);
        fs::remove(filler());
        fs::remove(file());
    }

    static fs::path place() { return fs::temp_directory_path(); }
    static fs::path filler() { return place() / "filler"; }
    static fs::path file() { return place() / "shot.mov"; }
    static fs::path partial() { return place() / "shot.mov.partial"; }

    // Fills the disk up to so many bytes.
    static void leaveRoom(std::uintmax_t bytes)
    {
        ::sync();
        const std::uintmax_t free = fs::space(place()).available;
        ASSERT_GT(free, bytes);
        const int descriptor = ::open(filler().c_str(), O_WRONLY | O_CREAT, 0644);
        ASSERT_GE(descriptor, 0);
        EXPECT_EQ(0, ::posix_fallocate(descriptor, 0, static_cast<off_t>(free - bytes)));
        ::close(descriptor);
    }
    // Records in writes of writeBytes until the disk is full.
    MediaRecording recordUntilFull(std::size_t writeBytes, MediaWriterOptions options = {})
    {
        options.bytesInFlight = 3 * mebibyte;
        MediaWriter writer(fromUTF8(file().string()), std::move(options));
        EXPECT_TRUE(writer.isOpen()) << writer.error().text;
        for (std::size_t at = 0; at + writeBytes <= all.size(); at += writeBytes)
            if (!writer.write(std::as_bytes(std::span(all).subspan(at, writeBytes))))
                break;
        return writer.finish();
    }
    void expectCutOff(const MediaRecording& recorded, std::size_t writeBytes)
    {
        EXPECT_EQ(MediaErrorCode::diskFull, recorded.error.code) << recorded.error.text;
        EXPECT_EQ(errorFromErrno(ENOSPC), recorded.error.platformCode);
        EXPECT_FALSE(recorded.complete);
        EXPECT_EQ(0U, recorded.bytes % writeBytes);
        EXPECT_EQ(recorded.bytes != 0, recorded.hasFinalName);
        EXPECT_EQ(recorded.bytes != 0, fs::exists(file()));
        EXPECT_TRUE(contentsOf(file()) == all.substr(0, recorded.bytes));
        EXPECT_FALSE(fs::exists(partial()));
    }

    const std::string all = noise(10 * mebibyte);
};

}  // namespace

TEST_F(FullDiskRecording, EndsWithTheLastWholeWriteWhereverTheDiskEnds)
{
    for (const std::size_t room : {std::size_t{0}, std::size_t{5000}, std::size_t{700'000}, mebibyte,
                                   2 * mebibyte + 12'345, 5 * mebibyte - 1}) {
        SCOPED_TRACE(room);
        leaveRoom(room);
        constexpr std::size_t writeBytes = 3'333;
        const MediaRecording recorded = recordUntilFull(writeBytes);
        expectCutOff(recorded, writeBytes);
        // What there was room for is used, but for the file system's own needs.
        EXPECT_GE(recorded.bytes + 65'536, room / writeBytes * writeBytes);
        fs::remove(file());
        fs::remove(filler());
    }
}

TEST_F(FullDiskRecording, KeepsNothingOfAWriteThatDoesNotFit)
{
    leaveRoom(2 * mebibyte + mebibyte / 2);
    const MediaRecording recorded = recordUntilFull(3 * mebibyte);
    expectCutOff(recorded, 3 * mebibyte);
    EXPECT_EQ(0U, recorded.bytes);
    EXPECT_TRUE(recorded.path.empty());
}

TEST_F(FullDiskRecording, TheCallerHearsBeforeTheDiskIsFull)
{
    std::vector<std::uint64_t> told;
    MediaWriterOptions options;
    options.lowSpaceBytes = 3 * mebibyte;
    options.onSpaceLow = [&](std::uint64_t freeBytes) { told.push_back(freeBytes); };
    const MediaRecording recorded = recordUntilFull(50'000, std::move(options));
    expectCutOff(recorded, 50'000);
    ASSERT_EQ(1U, told.size());
    EXPECT_LT(told[0], 3 * mebibyte);
    EXPECT_GT(told[0], 0U);
}

TEST_F(FullDiskRecording, AfterSomeRoomWasMadeTheNextOneIsComplete)
{
    leaveRoom(mebibyte / 2);
    expectCutOff(recordUntilFull(100'000), 100'000);
    fs::remove(file());
    fs::remove(filler());
    MediaWriter writer(fromUTF8(file().string()));
    EXPECT_TRUE(writer.write(std::as_bytes(std::span(all).first(4 * mebibyte))));
    EXPECT_TRUE(writer.finish().complete);
    EXPECT_TRUE(contentsOf(file()) == all.substr(0, 4 * mebibyte));
}
