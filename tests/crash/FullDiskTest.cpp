// Disks that get full wherever they like: at each byte of a save, and at random moments of recordings. The
// disk is the one at $TMPDIR (with_file_system.sh). CRASH_ROUNDS says how often to try, CRASH_SEED repeats a
// run.

#include "Pattern.h"
#include "Qz/Utf8.h"
#include "common/TemporaryFolder.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "fsys/SystemCache.h"
#include "media/MediaWriter.h"
#include "os/LastError.h"
#include "support/Preferences.h"
#include "support/TextFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/magic.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;

std::uint64_t environmentOr(const char* name, std::uint64_t otherwise)
{
    const char* const text = std::getenv(name);
    return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

std::mt19937_64 seeded()
{
    const std::uint64_t seed = environmentOr("CRASH_SEED", std::random_device()());
    std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
    return std::mt19937_64(seed);
}

// No file of this process may grow beyond so many bytes while this lives. A write that would is cut short at
// the limit, the next one fails: as at the end of a disk, but to the byte.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(std::size_t bytes)
    {
        ::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        EXPECT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limit));
    }
    ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &before_); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit before_{};
};

bool saveLines(const std::string& path, const std::string& line, std::size_t count)
{
    TextFile file(wide(path), false);
    for (std::size_t i = 0; i < count; ++i)
        file.appendLine(line.c_str());
    return file.save(1);
}

std::size_t filesIn(const std::string& folder)
{
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

// Lets a save fail at each byte of what it writes, and then succeed.
void failAtEachByte(const std::string& path, const std::function<bool()>& save, std::size_t newBytes)
{
    const std::string before = contentsOf(path);
    const std::string folder = fs::path(path).parent_path();
    const std::size_t filesBefore = filesIn(folder);
    for (std::size_t limit = 0; limit < newBytes; ++limit) {
        const FileSizeLimit full(limit);
        ASSERT_FALSE(save()) << limit;
        ASSERT_EQ(before, contentsOf(path)) << limit;
        ASSERT_EQ(filesBefore, filesIn(folder)) << limit;
    }
    const FileSizeLimit enough(newBytes);
    EXPECT_TRUE(save());
    EXPECT_EQ(newBytes, contentsOf(path).size());
    EXPECT_NE(before, contentsOf(path));
}

// A file that takes up all but so many bytes of the disk while this lives.
class Filler
{
public:
    explicit Filler(std::uintmax_t leave) : path_(fs::temp_directory_path() / "filler")
    {
        ::sync();
        const std::uintmax_t free = fs::space(path_.parent_path()).available;
        if (free <= leave)
            return;
        const int file = ::open(path_.c_str(), O_WRONLY | O_CREAT, 0644);
        EXPECT_GE(file, 0);
        fill(file, free - leave, leave);
        ::close(file);
    }
    ~Filler() { fs::remove(path_); }
    Filler(const Filler&) = delete;
    Filler& operator=(const Filler&) = delete;

private:
    // Not every file system gives away in one piece all that it calls free, and what is free says nothing
    // about a quota.
    static void fill(int file, std::uintmax_t bytes, std::uintmax_t leave)
    {
        constexpr std::uintmax_t least = 4096;
        std::uintmax_t done = 0;
        for (std::uintmax_t piece = bytes; piece >= least && done < bytes;) {
            piece = std::min(piece, bytes - done);
            if (::posix_fallocate(file, static_cast<off_t>(done), static_cast<off_t>(piece)) == 0)
                done += piece;
            else
                piece /= 2;
        }
        constexpr std::uintmax_t nearlyAll = mebibyte;
        if (done + nearlyAll < bytes && leave < done) {
            EXPECT_EQ(0, ::ftruncate(file, static_cast<off_t>(done - leave)));
        }
        ::fsync(file);
    }

    fs::path path_;
};

struct Outcome
{
    MediaRecording recorded;
    std::uint64_t accepted = 0;
    std::uint64_t onDisk = 0;
    bool begun = false;
    bool toldBefore = false;
    bool toldByWrite = false;
};

// Records in writes of writeBytes until the disk is full, or length bytes are written.
void recordUntilFull(const std::string& path, std::uint64_t number, std::size_t writeBytes,
                     std::uint64_t length, Outcome& outcome)
{
    MediaWriterOptions options;
    options.bytesInFlight = 4 * mebibyte;
    options.onSpaceLow = [&](std::uint64_t) { outcome.toldBefore = !outcome.toldByWrite; };
    MediaWriter writer(wide(path), options);
    outcome.begun = writer.isOpen();
    std::vector<std::byte> bytes(writeBytes);
    for (std::uint64_t at = 0; at < length; at += writeBytes) {
        fillPattern(number, at, bytes);
        if (!writer.write(bytes)) {
            outcome.toldByWrite = true;
            break;
        }
    }
    outcome.accepted = writer.counters().bytes;
    outcome.onDisk = writer.counters().bytesOnDisk;
    outcome.recorded = writer.finish();
}

// A btrfs at its limit may have no room for what a cut or its flush writes. A recording then keeps its
// unfinished name, and what it says that it holds is there.
bool mayRefuseToCut(const std::string& path)
{
    struct statfs system = {};
    return ::statfs(fs::path(path).parent_path().c_str(), &system) == 0 && system.f_type == BTRFS_SUPER_MAGIC;
}

void expectWholeWrites(const std::string& path, std::uint64_t number, std::size_t writeBytes,
                       const Outcome& outcome)
{
    const MediaRecording& recorded = outcome.recorded;
    EXPECT_EQ(outcome.begun, outcome.toldBefore);
    EXPECT_EQ(recorded.complete, recorded.bytes == outcome.accepted && !recorded.error);
    EXPECT_EQ(recorded.complete ? MediaErrorCode::none : MediaErrorCode::diskFull, recorded.error.code)
        << recorded.error.text;
    EXPECT_EQ(0U, recorded.bytes % writeBytes);
    EXPECT_GE(recorded.bytes, outcome.onDisk / writeBytes * writeBytes);
    const bool unfinished = recorded.bytes != 0 && !recorded.hasFinalName;
    EXPECT_TRUE(!unfinished || mayRefuseToCut(path));
    EXPECT_EQ(unfinished, fs::exists(path + ".partial"));
    const std::string there = contentsOf(unfinished ? path + ".partial" : path);
    EXPECT_GE(there.size(), recorded.bytes);
    EXPECT_TRUE(unfinished || there.size() == recorded.bytes);
    const std::string good = there.substr(0, recorded.bytes);
    EXPECT_EQ(recorded.bytes, matchingBytes(number, 0, std::as_bytes(std::span(good))));
}

class FullDiskMoments : public testing::Test
{
protected:
    FullDiskMoments() { FsysInitialize(); }
    ~FullDiskMoments() override
    {
        FsysUninitialize(Shutdown::eNormalExit);
        DiskManager::deInit();
        SystemCache::invalidate();
    }

    TemporaryFolder folder;
};

}  // namespace

TEST(SaveOnAFullDisk, OfATextFileKeepsTheOldOneAtEachByte)
{
    const TemporaryFolder folder;
    const std::string path = folder / "list.txt";
    ASSERT_TRUE(saveLines(path, "old", 3));
    const std::string line = "a line of the new file";
    failAtEachByte(
        path, [&] { return saveLines(path, line, 30); }, 30 * (line.size() + 1));
}

TEST(SaveOnAFullDisk, OfAPreferenceKeepsTheOldOnesAtEachByte)
{
    // Before their first use; the preferences of a process have one place.
    const TemporaryFolder folder;
    const std::string path = folder / "preferences";
    ASSERT_EQ(0, ::setenv("FSYS_PREFS", path.c_str(), 1));
    ASSERT_TRUE(prefs().setPreference("colour", L"grey"));
    const std::string value(400, 'x');
    const std::size_t bytes = contentsOf(path).size() + std::string("value=\n").size() + value.size();
    failAtEachByte(
        path, [&] { return prefs().setPreference("value", wide(value)); }, bytes);
}

TEST_F(FullDiskMoments, TheNameOfALocationIsTheOldOneAtEachByte)
{
    const std::string location = folder.folder("location") + "/";
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(wide(location), id, false));
    ASSERT_TRUE(DiskManager::prepareVolumeForMedia(id));
    const LightweightString<wchar_t> name(L"The long new name of a location");
    ASSERT_EQ(1, DiskManager::renameMediaLocation(id, L"Old"));
    const auto save = [&] {
        DiskManager::renameMediaLocation(id, name);  // reports nothing
        return DiskManager::getMediaLocationUserName(id) == name;
    };
    const std::string path = toUTF8(DiskManager::getInfoFileNameFor(id)).str();
    const std::size_t bytes = contentsOf(path).size() - 3 + toUTF8(name).size();
    failAtEachByte(path, save, bytes);
}

TEST_F(FullDiskMoments, ASaveIsTheOldOrTheNewOneWhateverIsLeft)
{
    std::mt19937_64 random = seeded();
    const std::string path = folder / "list.txt";
    ASSERT_TRUE(saveLines(path, "old", 3));
    unsigned saved = 0;
    unsigned refused = 0;
    for (std::uint64_t round = 0; round < environmentOr("CRASH_ROUNDS", 2) * 20; ++round) {
        const Filler filler(random() % (round % 2 == 0 ? 60'000 : 1'000'000));
        const std::string before = contentsOf(path);
        const std::string line(1 + random() % 200, static_cast<char>('a' + round % 26));
        const std::size_t count = 1 + random() % 500;
        const bool done = saveLines(path, line, count);
        std::string wanted;
        for (std::size_t i = 0; done && i < count; ++i)
            wanted += line + "\n";
        ASSERT_EQ(done ? wanted : before, contentsOf(path)) << round;
        ASSERT_EQ(1U, filesIn(folder.path())) << round;
        ++(done ? saved : refused);
    }
    std::printf("%u saves done, %u refused\n", saved, refused);
    EXPECT_GT(saved, 0U);
    EXPECT_GT(refused, 0U);
}

// Several recorders share the room, so each one ends at a moment of its own.
TEST_F(FullDiskMoments, RecordingsKeepAllWholeWrites)
{
    constexpr std::size_t recorders = 4;
    constexpr std::uint64_t longest = 12 * mebibyte;
    std::mt19937_64 random = seeded();
    unsigned cutOff = 0;
    for (std::uint64_t round = 0; round < environmentOr("CRASH_ROUNDS", 2); ++round) {
        const Filler filler(random() % (recorders * longest));
        std::vector<Outcome> outcomes(recorders);
        std::vector<std::size_t> writeBytes;
        const auto pathOf = [&](std::size_t i) { return folder / ("shot" + std::to_string(i) + ".mov"); };
        {
            std::vector<std::jthread> threads;
            for (std::size_t i = 0; i < recorders; ++i) {
                writeBytes.push_back(1 + random() % (i % 2 == 0 ? 5'000 : 2 * mebibyte));
                threads.emplace_back(recordUntilFull, pathOf(i), i + 1, writeBytes[i], longest,
                                     std::ref(outcomes[i]));
            }
        }
        for (std::size_t i = 0; i < recorders; ++i) {
            SCOPED_TRACE("round " + std::to_string(round) + ", recorder " + std::to_string(i) +
                         ", writes of " + std::to_string(writeBytes[i]));
            expectWholeWrites(pathOf(i), i + 1, writeBytes[i], outcomes[i]);
            cutOff += outcomes[i].recorded.complete ? 0U : 1U;
            fs::remove(pathOf(i));
            fs::remove(pathOf(i) + ".partial");
        }
    }
    std::printf("%u recordings cut off\n", cutOff);
    EXPECT_GT(cutOff, 0U);
}
