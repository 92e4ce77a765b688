#include "os/testing/ForwardingOS.h"
#include "FakeReceiver.h"
#include "Qz/Utf8.h"
#include "os/testing/FakeOS.h"

#include <gtest/gtest.h>

namespace {

struct CountingFile : ForwardingFile
{
    using ForwardingFile::ForwardingFile;
    bool read(std::uint64_t position, void* buffer, std::size_t count, std::size_t* done) override
    {
        ++reads;
        return ForwardingFile::read(position, buffer, count, done);
    }
    unsigned reads = 0;
};

struct WrappingFiles : ForwardingFileManager
{
    using ForwardingFileManager::ForwardingFileManager;
    Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                        unsigned mode) override
    {
        const auto file = target().open(path, access, creation, share, mode);
        return file ? Qz::Ptr<iFile>(new CountingFile(file)) : file;
    }
    LightweightString<wchar_t> getMachineName() override { return L"other"; }
};

TEST(ForwardingOS, PassesEveryServiceOn)
{
    FakeOS fakeOs;
    ForwardingOS os(fakeOs);
    EXPECT_EQ(os.getFileManager(), fakeOs.getFileManager());
    EXPECT_EQ(os.getThreadServices(), fakeOs.getThreadServices());
    EXPECT_EQ(os.getClock(), fakeOs.getClock());
    EXPECT_EQ(os.getPageMemory(), fakeOs.getPageMemory());
}

TEST(ForwardingOS, PutsOneServiceInPlaceOfAnother)
{
    FakeOS fakeOs;
    ForwardingOS os(fakeOs);
    WrappingFiles files(fakeOs.files());
    ForwardingClock clock(fakeOs.clock());
    ForwardingThreadServices threads(fakeOs.threads());
    ForwardingPageMemory pages(fakeOs.pages());
    os.use(files);
    os.use(clock);
    os.use(threads);
    os.use(pages);
    EXPECT_EQ(os.getFileManager()->getMachineName(), LightweightString<wchar_t>(L"other"));
    fakeOs.clock().setNow(12.5);
    EXPECT_EQ(os.getClock()->msecs(), 12U);
    EXPECT_EQ(os.getClock()->msecsPrecise(), 12.5);
    os.getClock()->sleep(3);
    EXPECT_EQ(fakeOs.clock().sleptMs(), 3);
    EXPECT_TRUE(os.getThreadServices()->createEvent(1, 1, nullptr)->wait(0));
    void* memory = os.getPageMemory()->allocate(nullptr, 5, 12288, 4);
    EXPECT_EQ(fakeOs.live().pages, 1U);
    EXPECT_TRUE(os.getPageMemory()->release(memory, 49152));
}

TEST(ForwardingOS, EveryFileOperationReachesItsTarget)
{
    FakeOS fakeOs;
    fakeOs.files().addFile(L"/m/a", "abc");
    fakeOs.files().addDrive(L"/m/");
    ForwardingFileManager files(fakeOs.files());
    std::string contents;
    std::vector<iFileManager::DirectoryItem> items;
    FolderListing listing;
    EXPECT_TRUE(files.open(L"/m/a", 1, 0, 4, 0));
    EXPECT_FALSE(files.isOpenedDirectly(L"/m/a"));
    EXPECT_EQ(files.getFileSize(L"/m/a"), 3U);
    EXPECT_TRUE(files.fileExists(L"/m/a"));
    EXPECT_TRUE(files.readWholeFile(L"/m/a", 3, contents));
    EXPECT_TRUE(files.replaceFile(L"/m/b", contents));
    EXPECT_TRUE(files.directoryExists(L"/m"));
    EXPECT_TRUE(files.createDirectory(L"/m/c"));
    EXPECT_TRUE(files.isWritable(L"/m/c"));
    EXPECT_TRUE(files.listDirectory(L"/m/*.*", items));
    EXPECT_TRUE(files.listFiles(L"/m/*.*", listing));
    EXPECT_EQ(listing.size(), items.size());
    EXPECT_TRUE(files.listFilesWithPrefix(L"/m", L"a", items));
    EXPECT_TRUE(files.deleteTree(L"/m/c"));
    EXPECT_TRUE(files.renameFile(L"/m/b", L"/m/d"));
    EXPECT_TRUE(files.deleteFile(L"/m/d"));
    EXPECT_EQ(files.getPathSeparator(), L'/');
    EXPECT_EQ(files.resolvePath(L"/m//a"), iFileManager::Path(L"/m/a"));
    EXPECT_TRUE(files.hasDirectoryPart(L"/m/a"));
    EXPECT_TRUE(files.getUNCName(L"/m/a").empty());
    EXPECT_TRUE(files.listShares(L"x").empty());
    EXPECT_EQ(files.getMachineName(), LightweightString<wchar_t>(L"fakehost"));
    EXPECT_TRUE(files.getDriveForPath(L"/m/a"));
    EXPECT_EQ(files.listDisks(1).size(), 1U);
    files.reportError(L"/m/a", 1);
    files.registerForRemoval(L"/m/a");
    EXPECT_TRUE(files.createAsyncContext(nullptr));
    for (const fake::Op op : {fake::Op::open,
                              fake::Op::isOpenedDirectly,
                              fake::Op::getFileSize,
                              fake::Op::fileExists,
                              fake::Op::deleteFile,
                              fake::Op::renameFile,
                              fake::Op::readWholeFile,
                              fake::Op::replaceFile,
                              fake::Op::directoryExists,
                              fake::Op::createDirectory,
                              fake::Op::isWritable,
                              fake::Op::listFilesWithPrefix,
                              fake::Op::deleteTree,
                              fake::Op::resolvePath,
                              fake::Op::hasDirectoryPart,
                              fake::Op::getUNCName,
                              fake::Op::listShares,
                              fake::Op::getMachineName,
                              fake::Op::getDriveForPath,
                              fake::Op::listDisks,
                              fake::Op::reportError,
                              fake::Op::registerForRemoval,
                              fake::Op::createAsyncContext})
        EXPECT_EQ(fakeOs.log().count(op), 1U) << fake::nameOf(op);
    EXPECT_EQ(fakeOs.log().count(fake::Op::listDirectory), 2U) << "as items and as one listing";
}

// The same through the fake platform and through the real one, whose ports know nothing of wrappers.
void readThroughAWrapper(iOperatingSystem& target, const wchar_t* path, const std::string& expected)
{
    ForwardingOS os(target);
    WrappingFiles files(*target.getFileManager());
    os.use(files);
    ScopedOS installed(os);
    const auto file = OS()->getFileManager()->open(path, 1, 0, 4, 2);
    ASSERT_TRUE(Qz::dynamicCast<CountingFile>(file));
    std::string buffer(expected.size(), '-');
    EXPECT_TRUE(file->read(0, buffer.data(), buffer.size(), nullptr));
    EXPECT_EQ(Qz::dynamicCast<CountingFile>(file)->reads, 1U);
    FILE_INFO info;
    EXPECT_TRUE(file->getInfo(&info));
    EXPECT_EQ(file->getSize(), info.size);
    EXPECT_TRUE(file->flush());
    EXPECT_FALSE(file->claim()) << "the handle is for reading";
    std::uint64_t writtenSize = 0;
    EXPECT_TRUE(file->getWrittenSize(&writtenSize));
    EXPECT_EQ(writtenSize, info.size);
    EXPECT_FALSE(file->setSize(0)) << "the handle is for reading";
    EXPECT_EQ(file->getAsyncCapability(), 1U);

    buffer.assign(buffer.size(), '-');
    FakeReceiver receiver;
    {
        CompletionPortHandler port("wrapped", receiver.command(), 3, 3, 3, 3);
        EXPECT_TRUE(port.attach(file));
        EXPECT_TRUE(file->asyncRead(0, buffer.data(), buffer.size(),
                                    OS()->getFileManager()->createAsyncContext(nullptr)));
    }
    ASSERT_EQ(receiver.seen().size(), 1U);
    EXPECT_EQ(buffer, expected);
    file->close();
    EXPECT_FALSE(file->isOpen());
}

TEST(ForwardingFile, IsAttachedAsTheHandleInsideOnTheFakePlatform)
{
    FakeOS os;
    os.files().addFile(L"/a", "abc");
    readThroughAWrapper(os, L"/a", "abc");
}

TEST(ForwardingFile, IsAttachedAsTheHandleInsideOnTheRealPlatform)
{
    iFileManager& files = *OS()->getFileManager();
    const iFileManager::Path path = fromUTF8(testing::TempDir() + "forwarding.bin");
    ASSERT_TRUE(files.replaceFile(path, "abc"));
    readThroughAWrapper(*OS(), path.c_str(), "abc");
    EXPECT_TRUE(files.deleteFile(path));
}

}  // namespace
