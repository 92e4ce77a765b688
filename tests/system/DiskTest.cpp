// Disks that are full, read-only, or of large sectors. Each suite runs on the file system that it is named
// after, mounted at $TMPDIR (with_file_system.sh).

#include "Qz/Utf8.h"
#include "Qz/iMemHolder.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "fsys/MediaDrive.h"
#include "fsys/SystemCache.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/OS.h"
#include "support/TextFile.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

LightweightString<wchar_t> wide(const fs::path& path) { return fromUTF8(path.string()); }

fs::path place() { return fs::temp_directory_path(); }

class Data : public iMemHolder
{
public:
    explicit Data(std::string bytes) : bytes_(std::move(bytes)) {}
    [[nodiscard]] unsigned char* getBuffer() const override
    {
        return reinterpret_cast<unsigned char*>(const_cast<char*>(bytes_.data()));
    }
    [[nodiscard]] unsigned getSize() const override { return static_cast<unsigned>(bytes_.size()); }
    [[nodiscard]] unsigned getUsed() const override { return getSize(); }
    void setUsed(unsigned /*bytes*/) override {}

private:
    std::string bytes_;
};

// The ends of requests, in the order in which they came.
class Ends : public iObject
{
public:
    static void note(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
    {
        auto& self = dynamic_cast<Ends&>(*context);
        const std::lock_guard<std::mutex> hold(self.guard_);
        self.statuses_.push_back(status);
        self.data_ = data;
        self.changed_.notify_all();
    }
    std::vector<RequestStatus> await(std::size_t count)
    {
        std::unique_lock<std::mutex> hold(guard_);
        changed_.wait(hold, [&] { return statuses_.size() >= count; });
        return statuses_;
    }
    Qz::Ptr<iMemHolder> data()
    {
        const std::lock_guard<std::mutex> hold(guard_);
        return data_;
    }

private:
    std::mutex guard_;
    std::condition_variable changed_;
    std::vector<RequestStatus> statuses_;
    Qz::Ptr<iMemHolder> data_;
};

class Disk : public testing::Test
{
protected:
    Disk() { FsysInitialize(); }
    ~Disk() override
    {
        FsysUninitialize(Shutdown::eNormalExit);
        DiskManager::deInit();
        SystemCache::invalidate();
    }
    // Until the file system tells that nothing is left; freed and delayed blocks come to light late.
    static void fill()
    {
        for (int round = 0; round < 100 && fs::space(place()).available != 0; ++round) {
            const std::string block(round == 0 ? 4096 : 1024, 'f');
            std::ofstream filler(place() / ("filler" + std::to_string(round)), std::ios::binary);
            while (filler.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
            }
            filler.close();
            ::sync();
        }
        ASSERT_EQ(0U, fs::space(place()).available);
    }
};

class FullDisk : public Disk
{
protected:
    FullDisk()
    {
        std::error_code ignored;
        for (const auto& entry : fs::directory_iterator(place()))
            fs::remove_all(entry, ignored);
    }
};
class ReadOnlyDisk : public Disk
{
};
class LargeSectors : public Disk
{
};

}  // namespace

TEST_F(FullDisk, AWriteThatFindsNoRoomIsReportedAndWhatWasWrittenStays)
{
    FsysFile* file = nullptr;
    ASSERT_EQ(1U, FsysOpen(&file, wide(place() / "recording.mov"), 0, fsysOpenWrite, nullptr));
    const Qz::Ptr<Ends> ends(new Ends);
    Qz::Ptr<iObject> context = ends;
    const std::string block(1 << 20, 'x');
    std::size_t asked = 0;
    bool failed = false;
    while (!failed && asked < 20) {
        Qz::Ptr<iMemHolder> data(new Data(block));
        ASSERT_EQ(1U, file->DirectWrite(data, false, &Ends::note, context, false));
        failed = ends->await(++asked).back() == eRequestError;
    }
    EXPECT_TRUE(failed);
    EXPECT_EQ(errorFromErrno(ENOSPC), FsysGetLastError());
    FsysClose(file, nullptr);
    EXPECT_GE(fs::file_size(place() / "recording.mov"), (asked - 1) * block.size());
}

TEST_F(FullDisk, ASaveThatFindsNoRoomLeavesTheOldFileWhole)
{
    const fs::path path = place() / "list.txt";
    TextFile before(wide(path), false);
    before.appendLine("kept");
    ASSERT_TRUE(before.save(1));
    fill();
    TextFile after(wide(path), true);
    for (int i = 0; i < 20000; ++i)
        after.appendLine("a line that has no room any more");
    EXPECT_FALSE(after.save(1));
    const TextFile now(wide(path), true);
    ASSERT_EQ(1U, now.getLineCount());
    EXPECT_EQ("kept", now.getLine(0));
    // Nothing half-written lies about.
    for (const auto& entry : fs::directory_iterator(place())) {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE(name == "list.txt" || name == "lost+found" || name.starts_with("filler")) << name;
    }
}

TEST_F(FullDisk, ADriveWithoutRoomHasNoDescriptionWritten)
{
    const fs::path location = place() / "location";
    fs::create_directories(location / "Material");
    fs::create_directories(location / "Sound");
    fill();
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(wide(location), id, false));
    EXPECT_EQ(0.0, DiskManager::getDriveWithUniqueId(id).getSpaceMB());
    EXPECT_FALSE(DiskManager::saveDriveInfo(DiskManager::getDriveWithUniqueId(id)));
    EXPECT_FALSE(fs::exists(location / "Material" / "MediaSpaceInfo.txt"));
    EXPECT_EQ(-2.0, DiskManager::getSpaceForRecording(id));
}

TEST_F(ReadOnlyDisk, ALocationOnItIsRefused)
{
    DriveId id;
    EXPECT_FALSE(DiskManager::addMaterialVolume(wide(place() / "location"), id, false));
    EXPECT_FALSE(DiskManager::writableVolume(wide(place() / "location")));
}

TEST_F(ReadOnlyDisk, ItsMediaCanBeReadAndNotOpenedForWriting)
{
    const LightweightString<wchar_t> media = wide(place() / "location/Material/V00000000000000AA00.mov");
    FsysFile* file = nullptr;
    testing::internal::CaptureStdout();
    EXPECT_EQ(0U, FsysOpen(&file, media, 0, fsysOpenWrite, nullptr));
    EXPECT_EQ("LowLevelOpen error 0x1001e\n", testing::internal::GetCapturedStdout());
    EXPECT_EQ(errorFromErrno(EROFS), FsysGetLastError());
    ASSERT_EQ(1U, FsysOpen(&file, media, 0, fsysOpenRead, nullptr));
    const Qz::Ptr<Ends> ends(new Ends);
    Qz::Ptr<iObject> context = ends;
    EXPECT_EQ(1U, file->DirectRead(1000, 99000, false, &Ends::note, context));
    EXPECT_EQ(eRequestSuccess, ends->await(1).back());
    EXPECT_EQ(99000U, ends->data()->getSize());
    FsysClose(file, nullptr);
}

TEST_F(ReadOnlyDisk, ADeletionThatFailsTellsTheCode)
{
    FsysDirectoryEntry entry;
    testing::internal::CaptureStdout();
    EXPECT_EQ(errorFromErrno(EROFS),
              entry.deleteFile({DriveId('0'), wide(place() / "location/Material/V00000000000000AA00.mov")}));
    testing::internal::GetCapturedStdout();
}

TEST_F(LargeSectors, TheEngineAlignsToTheDisksSectors)
{
    std::ofstream(place() / "a.mov", std::ios::binary) << std::string(100000, 'x');
    FsysFile* file = nullptr;
    ASSERT_EQ(1U, FsysOpen(&file, wide(place() / "a.mov"), 0, fsysOpenRead, nullptr));
    EXPECT_EQ(4096U, file->GetSectorSize());
    FsysClose(file, nullptr);
    DriveId id;
    fs::create_directories(place() / "location");
    ASSERT_TRUE(DiskManager::addMaterialVolume(wide(place() / "location"), id, false));
    EXPECT_EQ(4096U, DiskManager::getDriveWithUniqueId(id).getSectorSize());
}

TEST_F(LargeSectors, ReadsAndWritesOfAnyPlaceAndLengthBringTheirBytes)
{
    std::string bytes(100'000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>((i * 2654435761U) >> 13);
    const fs::path path = place() / "b.mov";
    std::ofstream(path, std::ios::binary) << bytes;
    FsysFile* file = nullptr;
    ASSERT_EQ(1U, FsysOpen(&file, wide(path), 0, fsysOpenRead, nullptr));
    // Whole sectors of a disk that has smaller ones among them.
    for (const auto& [position, count] :
         {std::pair(0L, 4096U), std::pair(512L, 512U), std::pair(4608L, 8192U), std::pair(99'999L, 1U),
          std::pair(513L, 70'000U)}) {
        const Qz::Ptr<Ends> ends(new Ends);
        Qz::Ptr<iObject> context = ends;
        ASSERT_EQ(1U, file->DirectRead(position, count, false, &Ends::note, context));
        ASSERT_EQ(eRequestSuccess, ends->await(1).front());
        const std::string read(reinterpret_cast<char*>(ends->data()->getBuffer()), count);
        EXPECT_TRUE(bytes.substr(static_cast<std::size_t>(position), count) == read) << position;
    }
    FsysClose(file, nullptr);

    // The platform itself, for whom the size of a sector is only the callers' guess.
    iFileManager& files = *OS()->getFileManager();
    const Qz::Ptr<iFile> plain = files.open(wide(path), os::accessReadWrite, os::creationOpen, os::shareAll,
                                            os::modeAsync | os::modeUnbuffered);
    ASSERT_TRUE(plain);
    EXPECT_TRUE(plain->write(512, bytes.data(), 512, nullptr));
    std::string half(1024, '\0');
    EXPECT_TRUE(plain->read(512, half.data(), half.size(), nullptr));
    EXPECT_TRUE(half == bytes.substr(0, 512) + bytes.substr(1024, 512));
}
