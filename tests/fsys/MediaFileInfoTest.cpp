#include "fsys/MediaFileInfo.h"

#include <atomic>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "FileSpy.h"

namespace {

using Path = LightweightString<wchar_t>;

MaterialFilename at(const Path& path) { return {DriveId('0'), path}; }

class MediaFileInfoOfALink : public testing::Test
{
protected:
    TestFolder folder;
    const Path link = folder.write("a.mov", linkTo("/mnt/store/clip.mov"));
};

}  // namespace

TEST(MediaFileInfo, IsOfNoFileAtFirst)
{
    const MediaFileInfo none;
    EXPECT_EQ(none.getMaterialFilename().getDrive(), DriveId('0'));
    EXPECT_TRUE(none.getMaterialFilename().getPath().empty());
    EXPECT_EQ(none.getLinkState(), 1u);
    EXPECT_EQ(none.getProxyHeight(), 0u);
    EXPECT_EQ(none.getProxyAudioChannels(), 0u);
    EXPECT_EQ(none.size, 0u);
    EXPECT_EQ(none.status, 0u);
    EXPECT_FALSE(none.isProxy());
}

TEST(MediaFileInfo, KeepsNameAndSizeAndStartsUntested)
{
    const MediaFileInfo info(MaterialFilename(DriveId('3'), L"Material/abc.mov"), 0x123456789A);
    EXPECT_EQ(info.getMaterialFilename().getDrive(), DriveId('3'));
    EXPECT_EQ(info.getMaterialFilename().getPath(), L"Material/abc.mov");
    EXPECT_EQ(info.size, 0x123456789Au);
    EXPECT_EQ(info.status, eStatusUnknown);
    EXPECT_EQ(info.getLinkState(), 1u);
}

TEST(MediaFileInfo, KnowsHeightAndChannelsOfAProxyFromItsName)
{
    const MediaFileInfo proxy(at(L"Material/abc.A2.proxy.480.mov"), 1000);
    EXPECT_TRUE(proxy.isProxy());
    EXPECT_EQ(proxy.getProxyHeight(), 480u);
    EXPECT_EQ(proxy.getProxyAudioChannels(), 2u);

    const MediaFileInfo linked(at(L"Material/abc.A2.proxy.480.mov"), L"/mnt/p.mov", 512);
    EXPECT_EQ(linked.getProxyHeight(), 480u);
    EXPECT_EQ(linked.getProxyAudioChannels(), 2u);
}

TEST(MediaFileInfo, OfFullResolutionHasNoHeightAndNoChannels)
{
    const MediaFileInfo info(at(L"Material/abc.mov"), 1000);
    EXPECT_FALSE(info.isProxy());
    EXPECT_EQ(info.getProxyHeight(), 0u);
    EXPECT_EQ(info.getProxyAudioChannels(), 0u);
    EXPECT_EQ(MediaFileInfo(at(L"Material/abc.A8.mov"), 1000).getProxyAudioChannels(), 0u);
}

TEST(MediaFileInfo, OfAProxyByItsFolderHasNoHeight)
{
    const MediaFileInfo proxy(at(L"/Material/proxy/proxy-1.mov"), 1000);
    EXPECT_EQ(proxy.getProxyHeight(), 0xFFFFFFFFu);
    EXPECT_EQ(proxy.getProxyAudioChannels(), 0u);
    EXPECT_EQ(MediaFileInfo(at(L"/Material/proxy/proxy-1.A4.mov"), 1000).getProxyAudioChannels(), 4u);
}

TEST(MediaFileInfo, IsMadeWithoutLookingAtTheDisk)
{
    const FileSpy spy;
    const MediaFileInfo plain(at(L"/Material/abc.mov"), 512);
    const MediaFileInfo proxy(at(L"/Material/abc.A2.proxy.480.mov"), 512);
    const MediaFileInfo linked(at(L"/Material/abc.mov"), L"/mnt/a.mov", 512);
    const MediaFileInfo copy = plain;
    EXPECT_EQ(spy.diskAccesses, 0);
}

TEST(MediaFileInfo, TakesAnotherNameAndNothingElse)
{
    MediaFileInfo info(at(L"Material/abc.A2.proxy.480.mov"), L"/mnt/p.mov", 512);
    info.status = eStatusOnline;
    info.setMaterialFilename(MaterialFilename(DriveId('7'), L"Material/other.mov"));
    EXPECT_EQ(info.getMaterialFilename().getDrive(), DriveId('7'));
    EXPECT_EQ(info.getMaterialFilename().getPath(), L"Material/other.mov");
    EXPECT_EQ(info.getProxyHeight(), 480u);
    EXPECT_EQ(info.getProxyAudioChannels(), 2u);
    EXPECT_EQ(info.size, 512u);
    EXPECT_EQ(info.status, eStatusOnline);
    EXPECT_EQ(info.getLinkState(), 0u);
    EXPECT_EQ(info.readLinkedFilename(), L"/mnt/p.mov");
    EXPECT_FALSE(info.isProxy()) << "asked of the name that it has now";
}

TEST(MediaFileInfo, StaysSmall) { EXPECT_LE(sizeof(MediaFileInfo), 80u); }

TEST(MediaFileInfo, WithAKnownTargetNeverOpensTheLink)
{
    const FileSpy spy;
    const MediaFileInfo info(at(L"/no/such/link.mov"), L"/mnt/clip.mov", 512);
    EXPECT_EQ(info.getLinkState(), 0u);
    EXPECT_EQ(info.readLinkedFilename(), L"/mnt/clip.mov");
    EXPECT_EQ(info.getPhysicalFilename(false), L"/mnt/clip.mov");
    EXPECT_EQ(spy.diskAccesses, 0);
}

TEST(MediaFileInfo, NamesTheLinkItself)
{
    const FileSpy spy;
    const MediaFileInfo info(at(L"/some/link.mov"), L"/mnt/clip.mov", 512);
    EXPECT_EQ(info.getLinkFileName(), L"/some/link.mov");
    EXPECT_EQ(spy.diskAccesses, 0);
}

TEST_F(MediaFileInfoOfALink, AnswersWithTheTarget)
{
    const MediaFileInfo info(at(link), 512);
    EXPECT_EQ(info.getPhysicalFilename(false), L"/mnt/store/clip.mov");
    EXPECT_EQ(info.getLinkState(), 0u);
}

TEST_F(MediaFileInfoOfALink, AnswersWithItsOwnPathWhenTheSizeIsNotThatOfALink)
{
    const FileSpy spy;
    for (const std::uint64_t size : {0u, 511u, 513u}) {
        EXPECT_EQ(MediaFileInfo(at(link), size).getPhysicalFilename(false), link);
        EXPECT_EQ(MediaFileInfo(at(link), size).getPhysicalFilename(true), link);
    }
    EXPECT_EQ(spy.diskAccesses, 0);
}

TEST_F(MediaFileInfoOfALink, ReadsTheLinkOnceAndKeepsTheAnswer)
{
    const MediaFileInfo info(at(link), 512);
    EXPECT_EQ(info.readLinkedFilename(), L"/mnt/store/clip.mov");
    folder.write("a.mov", linkTo("/mnt/store/other.mov"));
    const FileSpy spy;
    EXPECT_EQ(info.readLinkedFilename(), L"/mnt/store/clip.mov");
    EXPECT_EQ(spy.diskAccesses, 0);
}

TEST_F(MediaFileInfoOfALink, KeepsTheEmptyNameOfALinkThatCannotBeRead)
{
    const MediaFileInfo info(at(link), 512);
    {
        FileSpy spy;
        spy.failReads = true;
        EXPECT_TRUE(info.readLinkedFilename().empty());
    }
    EXPECT_EQ(info.getLinkState(), 0u);
    EXPECT_TRUE(info.readLinkedFilename().empty());
}

TEST_F(MediaFileInfoOfALink, KeepsItsOwnPathWhenTheFileIsNoLinkAfterAll)
{
    const Path media = folder.write("b.mov", "media");
    const MediaFileInfo info(at(media), 512);
    EXPECT_EQ(info.readLinkedFilename(), media);
    EXPECT_EQ(info.getLinkState(), 0u);
}

TEST_F(MediaFileInfoOfALink, ResolvesTheTargetOnDemand)
{
    const Path media = folder.write("store/clip.mov", "media");
    std::filesystem::create_symlink(media.str(), folder.path("symlink.mov").str());
    folder.write("a.mov", linkTo(std::filesystem::path(folder.path("symlink.mov").str()).string()));
    const MediaFileInfo info(at(link), 512);
    EXPECT_EQ(info.getPhysicalFilename(false), folder.path("symlink.mov"));
    EXPECT_EQ(info.getPhysicalFilename(true), std::filesystem::canonical(media.str()).wstring().c_str());
}

TEST_F(MediaFileInfoOfALink, WritesItsLink)
{
    const MediaFileInfo info(at(folder.path("new.mov")), L"/mnt/clip.mov", 512);
    EXPECT_TRUE(info.createLinkFile(false));
    EXPECT_EQ(folder.read("new.mov"), linkTo("/mnt/clip.mov"));
    EXPECT_FALSE(info.createLinkFile(false)) << "there is one now";
    EXPECT_TRUE(info.storeLinkedFilename(L"/mnt/other.mov"));
    EXPECT_TRUE(info.createLinkFile(true));
    EXPECT_EQ(folder.read("new.mov"), linkTo("/mnt/other.mov"));
}

TEST_F(MediaFileInfoOfALink, WritesAnEmptyLinkWhileTheTargetIsNotKnown)
{
    const MediaFileInfo info(at(link), 512);
    EXPECT_TRUE(info.createLinkFile(true));
    EXPECT_EQ(folder.read("a.mov"), std::string(512, '\0'));
}

TEST_F(MediaFileInfoOfALink, RefusesToWriteALinkWhoseTargetDoesNotFit)
{
    const MediaFileInfo info(at(link), 512);
    const std::string before = folder.read("a.mov");
    // Fewer than 512 characters, but more than 511 bytes.
    info.storeLinkedFilename(std::wstring(300, L'\u00c4'));
    EXPECT_FALSE(info.createLinkFile(true));
    EXPECT_EQ(folder.read("a.mov"), before);
}

TEST_F(MediaFileInfoOfALink, TakesAStoredNameInsteadOfReading)
{
    const MediaFileInfo info(at(link), 512);
    EXPECT_TRUE(info.storeLinkedFilename(L"/mnt/new.mov"));
    EXPECT_EQ(info.getLinkState(), 0u);
    const FileSpy spy;
    EXPECT_EQ(info.readLinkedFilename(), L"/mnt/new.mov");
    EXPECT_EQ(spy.diskAccesses, 0);
    EXPECT_TRUE(info.storeLinkedFilename(L"/mnt/newer.mov")) << "also over an answer";
    EXPECT_EQ(info.readLinkedFilename(), L"/mnt/newer.mov");
}

TEST_F(MediaFileInfoOfALink, AnswersTheFirstReaderWithTheFileAndOthersWithWhatWasStoredMeanwhile)
{
    // Somebody stores a name while the link is being read.
    class Storing : public FileSpy
    {
    public:
        explicit Storing(const MediaFileInfo& file) : info_(&file) {}
        Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                            unsigned mode) override
        {
            if (const MediaFileInfo* const once = std::exchange(info_, nullptr)) {
                EXPECT_TRUE(once->storeLinkedFilename(L"/mnt/other.mov"));
            }
            return FileSpy::open(path, access, creation, share, mode);
        }

    private:
        const MediaFileInfo* info_;
    };
    const MediaFileInfo info(at(link), 512);
    const Storing spy(info);
    EXPECT_EQ(info.readLinkedFilename(), L"/mnt/store/clip.mov");
    EXPECT_EQ(info.readLinkedFilename(), L"/mnt/other.mov");
    EXPECT_EQ(spy.opens().size(), 1u);
}

TEST_F(MediaFileInfoOfALink, IsCopiedWithItsKnownTarget)
{
    MediaFileInfo info(at(L"/x.A2.proxy.480.mov"), L"/mnt/p.mov", 512);
    info.status = eStatusOffline;
    info.addRef();
    const MediaFileInfo copy = info;
    EXPECT_EQ(copy.getMaterialFilename().getPath(), L"/x.A2.proxy.480.mov");
    EXPECT_EQ(copy.getLinkState(), 0u);
    EXPECT_EQ(copy.readLinkedFilename(), L"/mnt/p.mov");
    EXPECT_EQ(copy.getProxyHeight(), 480u);
    EXPECT_EQ(copy.getProxyAudioChannels(), 2u);
    EXPECT_EQ(copy.size, 512u);
    EXPECT_EQ(copy.status, eStatusOffline);
    EXPECT_EQ(copy.refCount(), 0u);
}

TEST_F(MediaFileInfoOfALink, IsCopiedUnreadWhileItsTargetIsNotKnown)
{
    const MediaFileInfo info(at(link), 512);
    const MediaFileInfo copy = info;
    EXPECT_EQ(copy.getLinkState(), 1u);
    EXPECT_EQ(copy.readLinkedFilename(), L"/mnt/store/clip.mov");
    EXPECT_EQ(info.getLinkState(), 1u) << "the copy read for itself";
}

TEST_F(MediaFileInfoOfALink, IsAssignedWholeAndKeepsItsCount)
{
    const MediaFileInfo known(at(L"/x.A2.proxy.480.mov"), L"/mnt/p.mov", 512);
    MediaFileInfo info;
    info.addRef();
    info = known;
    EXPECT_EQ(info.getMaterialFilename().getPath(), L"/x.A2.proxy.480.mov");
    EXPECT_EQ(info.readLinkedFilename(), L"/mnt/p.mov");
    EXPECT_EQ(info.getProxyHeight(), 480u);
    EXPECT_EQ(info.getProxyAudioChannels(), 2u);
    EXPECT_EQ(info.size, 512u);
    EXPECT_EQ(info.refCount(), 1u);

    info = MediaFileInfo(at(link), 512);
    EXPECT_EQ(info.getLinkState(), 1u) << "the former target is forgotten";
    EXPECT_EQ(info.readLinkedFilename(), L"/mnt/store/clip.mov");
}

TEST_F(MediaFileInfoOfALink, MayBeAssignedToItself)
{
    MediaFileInfo info(at(link), L"/mnt/p.mov", 512);
    const MediaFileInfo& same = info;
    info = same;
    EXPECT_EQ(info.readLinkedFilename(), L"/mnt/p.mov");
}

TEST_F(MediaFileInfoOfALink, GivesTheTargetToThreadsThatReadFirstAtTheSameTime)
{
    for (int round = 0; round < 1000; ++round) {
        const MediaFileInfo info(at(link), 512);
        std::atomic<int> waiting{2};
        Path names[2];
        const auto read = [&](Path& name) {
            for (--waiting; waiting > 0;)
                std::this_thread::yield();
            name = info.readLinkedFilename();
        };
        std::thread other([&] { read(names[1]); });
        read(names[0]);
        other.join();
        ASSERT_EQ(names[0], L"/mnt/store/clip.mov");
        ASSERT_EQ(names[1], L"/mnt/store/clip.mov");
        ASSERT_EQ(info.getLinkState(), 0u);
    }
}

TEST_F(MediaFileInfoOfALink, MayBeReadCopiedAndReplacedByManyThreadsAtOnce)
{
    MediaFileInfo info(at(link), L"/mnt/0.mov", 512);
    const std::vector<Path> names = {L"/mnt/0.mov", L"/mnt/1.mov", L"/mnt/store/clip.mov"};
    const auto isOneOfThem = [&](const Path& name) {
        return name == names[0] || name == names[1] || name == names[2];
    };
    std::atomic<int> strangers{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 2; ++t) {
        threads.emplace_back([&, t] {
            for (unsigned i = 0; i < 2000; ++i)
                info.storeLinkedFilename(names[t]);
        });
        threads.emplace_back([&] {
            for (unsigned i = 0; i < 2000; ++i) {
                strangers += !isOneOfThem(info.readLinkedFilename());
                strangers += !isOneOfThem(MediaFileInfo(info).readLinkedFilename());
                info.status = eStatusOnline;
                strangers += info.status != eStatusOnline;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(strangers, 0);
    EXPECT_EQ(info.getLinkState(), 0u);
    EXPECT_TRUE(isOneOfThem(info.readLinkedFilename()));
}
