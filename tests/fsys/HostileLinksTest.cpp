// Link files that nobody should have made, on the real platform: each is opened as it stands or not at all,
// in one step, and nothing hangs.

#include "EngineFixture.h"
#include "FileSpy.h"
#include "common/HeldByProcess.h"
#include "common/TemporaryFolder.h"
#include "os/LastError.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <condition_variable>
#include <filesystem>

#include <sys/stat.h>

using testing::AnyOf;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t linkSize = 512;

// Waits for the end of one read.
class Ended : public iObject
{
public:
    static void function(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus /*status*/)
    {
        auto& self = dynamic_cast<Ended&>(*context);
        const std::lock_guard<std::mutex> hold(self.guard_);
        self.bytes_ =
            data ? std::string(reinterpret_cast<char*>(data->getBuffer()), data->getSize()) : "failed";
        self.ended_ = true;
        self.changed_.notify_all();
    }
    std::string await()
    {
        std::unique_lock<std::mutex> hold(guard_);
        changed_.wait(hold, [&] { return ended_; });
        return bytes_;
    }

private:
    std::mutex guard_;
    std::condition_variable changed_;
    bool ended_ = false;
    std::string bytes_;
};

class HostileLinks : public testing::Test
{
protected:
    HostileLinks()
    {
        FsysInitialize();
        FsysFile* first = nullptr;  // the first one makes the ports
        FsysOpen(&first, wide(folder.file("first.mov", "x")), 0, fsysOpenRead, nullptr);
        FsysClose(first, nullptr);
        fs::current_path(folder.path());
    }
    ~HostileLinks() override
    {
        fs::current_path(before);
        FsysUninitialize(Shutdown::eNormalExit);
    }

    // What is read through a link of these contents; "not opened" with the code in error.
    std::string readThrough(const std::string& contents, unsigned bytes)
    {
        FsysFile* file = nullptr;
        if (FsysOpen(&file, wide(folder.file("link.mov", contents)), 65536, fsysOpenRead, nullptr) != 1) {
            EXPECT_EQ(nullptr, file);
            error = FsysGetLastError();
            return "not opened";
        }
        const Qz::Ptr<Ended> ended(new Ended);
        Qz::Ptr<iObject> context = ended;
        EXPECT_EQ(1U, file->DirectRead(0, bytes, false, &Ended::function, context));
        const std::string read = ended->await();
        EXPECT_EQ(1U, FsysClose(file, nullptr));
        return read;
    }

    const fs::path before = fs::current_path();
    TemporaryFolder folder;
    LogCapture logged;
    unsigned error = 0;
};

}  // namespace

TEST_F(HostileLinks, TargetsAreOpenedAsTheyStand)
{
    folder.folder("sub");
    folder.file("real.mov", "media");
    folder.file("\xff\xc3 \n.mov", "bytes");
    EXPECT_EQ("media", readThrough(linkTo("real.mov"), 5));
    EXPECT_EQ("media", readThrough(linkTo(folder / "sub/../real.mov"), 5));
    EXPECT_EQ("media", readThrough(linkTo(folder / "sub/.././/real.mov"), 5));
    EXPECT_EQ("bytes", readThrough(linkTo(folder / "\xff\xc3 \n.mov"), 5));
}

TEST_F(HostileLinks, ATargetOf511BytesIsOpened)
{
    std::string target = folder.path();
    while (target.size() < linkSize - 1 - 200)
        target += "/" + std::string(100, 'd');
    fs::create_directories(target);
    target += "/" + std::string(linkSize - 2 - target.size(), 'f');
    ASSERT_EQ(linkSize - 1, target.size());
    std::ofstream(target) << "media";
    EXPECT_EQ("media", readThrough(linkTo(target), 5));
}

TEST_F(HostileLinks, OneStepIsTakenAndNoMore)
{
    folder.file("real.mov", "media");
    const std::string second = linkTo(folder / "real.mov");
    folder.file("second.mov", second);
    EXPECT_EQ(second, readThrough(linkTo(folder / "second.mov"), linkSize));
    const std::string itself = linkTo(folder / "link.mov");
    EXPECT_EQ(itself, readThrough(itself, linkSize));
    for (int i = 0; i < 100; ++i)
        folder.file("ring" + std::to_string(i), linkTo(folder / ("ring" + std::to_string((i + 1) % 100))));
    EXPECT_EQ(linkTo(folder / "ring1"), readThrough(linkTo(folder / "ring0"), linkSize));
}

TEST_F(HostileLinks, TargetsThatAreNoFileAreNotOpenedAndLeaveNothingBehind)
{
    folder.folder("folder");
    const long descriptors = descriptorsHeld();
    for (const std::string& contents :
         {linkTo(""), linkTo(folder / "missing.mov"), linkTo(folder / "folder"), linkTo(folder / "folder/"),
          std::string(linkSize, 'x'), std::string(linkSize, '/'), "\xff" + std::string(linkSize - 1, '\xfe'),
          "/" + std::string(linkSize - 2, 'n') + std::string(1, '\0')}) {
        EXPECT_EQ("not opened", readThrough(contents, 5)) << contents.c_str();
        EXPECT_THAT(errnoFromError(error), AnyOf(ENOENT, EISDIR, ENOTDIR, ENAMETOOLONG)) << contents.c_str();
    }
    EXPECT_EQ(descriptors, descriptorsHeld());
}

TEST_F(HostileLinks, APipeAsTargetHoldsUpNobody)
{
    ASSERT_EQ(0, ::mkfifo((folder / "pipe").c_str(), 0600));
    const long descriptors = descriptorsHeld();
    const std::string read = readThrough(linkTo(folder / "pipe"), 5);
    EXPECT_THAT(read, AnyOf("not opened", "failed"));
    EXPECT_EQ(descriptors, descriptorsHeld());
}

TEST_F(HostileLinks, OfAnotherSizeTheyAreMedia)
{
    folder.file("real.mov", "media");
    const std::string target = folder / "real.mov";
    const std::string shorter = target + std::string(linkSize - 1 - target.size(), '\0');
    EXPECT_EQ(shorter, readThrough(shorter, linkSize - 1));
    EXPECT_EQ(linkTo(target) + "x", readThrough(linkTo(target) + "x", linkSize + 1));
}
