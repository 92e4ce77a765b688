#include "fsys/CookieIndex.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "Qz/Ptr.h"
#include "fsys/FsysDirectoryEntry.h"

namespace {

using EntryPtr = Qz::Ptr<FsysDirectoryEntry>;
using Reference = std::map<Cookie, EntryPtr>;

Cookie numbered(std::uint64_t clip) { return {CookieTypeVision, clip, 0}; }

// Few clips and channels, so that clips fill several nodes and random cookies meet again.
Cookie randomCookie(std::mt19937& random)
{
    const CookieType type = random() % 2 == 0 ? CookieTypeVision : CookieTypeSound;
    return {type, random() % 500, static_cast<unsigned char>(random() % 20)};
}

void add(CookieIndex& index, const Cookie& cookie)
{
    const EntryPtr entry = new FsysDirectoryEntry;
    index.insert(cookie, entry.get());
}

std::vector<Cookie> walk(const CookieIndex& index)
{
    std::vector<Cookie> cookies;
    for (auto element = index.first(); element.second; element = index.firstBehind(element.first))
        cookies.push_back(element.first);
    return cookies;
}

std::vector<Cookie> keysOf(const Reference& reference)
{
    std::vector<Cookie> cookies;
    for (const auto& [cookie, entry] : reference)
        cookies.push_back(cookie);
    return cookies;
}

void expectSame(const CookieIndex& index, const Reference& reference)
{
    ASSERT_EQ(index.size(), reference.size());
    ASSERT_EQ(walk(index), keysOf(reference));
    for (const auto& [cookie, entry] : reference)
        ASSERT_EQ(index.find(cookie), entry.get());
}

}  // namespace

TEST(CookieIndex, IsEmptyAtFirst)
{
    CookieIndex index;
    EXPECT_EQ(index.size(), 0u);
    EXPECT_EQ(index.find(numbered(1)), nullptr);
    EXPECT_EQ(index.first().second, nullptr);
    EXPECT_EQ(index.firstBehind(numbered(1)).second, nullptr);
    EXPECT_FALSE(index.erase(numbered(1)));
    index.eraseIf([](const FsysDirectoryEntry&) { return true; });
    index.clear();
}

TEST(CookieIndex, KeepsTheFirstEntryOfACookie)
{
    CookieIndex index;
    const EntryPtr first = new FsysDirectoryEntry;
    const EntryPtr second = new FsysDirectoryEntry;
    EXPECT_EQ(index.insert(numbered(1), first.get()), first.get());
    EXPECT_EQ(index.insert(numbered(1), second.get()), first.get());
    EXPECT_EQ(index.size(), 1u);
    EXPECT_EQ(first->refCount(), 2u);
    EXPECT_EQ(second->refCount(), 1u);
}

TEST(CookieIndex, HoldsAReferenceUntilTheElementGoes)
{
    CookieIndex index;
    const EntryPtr erased = new FsysDirectoryEntry;
    const EntryPtr dropped = new FsysDirectoryEntry;
    const EntryPtr cleared = new FsysDirectoryEntry;
    index.insert(numbered(1), erased.get());
    index.insert(numbered(2), dropped.get());
    index.insert(numbered(3), cleared.get());
    EXPECT_TRUE(index.erase(numbered(1)));
    EXPECT_EQ(erased->refCount(), 1u);
    index.eraseIf([&](const FsysDirectoryEntry& entry) { return &entry == dropped.get(); });
    EXPECT_EQ(dropped->refCount(), 1u);
    EXPECT_EQ(cleared->refCount(), 2u);
    index.clear();
    EXPECT_EQ(cleared->refCount(), 1u);
}

TEST(CookieIndex, OrdersByClipThenTypeThenChannel)
{
    const std::vector<Cookie> ordered = {
        Cookie(),
        {CookieTypeSound, 0, 0},
        {CookieTypeSound, 0, 255},
        {CookieTypeVision, 0, 0},
        {CookieTypeVision, 0, 255},
        {CookieTypeSound, 1, 7},
        {CookieTypeVision, ~std::uint64_t{0}, 0},
        {CookieTypeVision, ~std::uint64_t{0}, 255},
    };
    CookieIndex index;
    for (auto cookie = ordered.rbegin(); cookie != ordered.rend(); ++cookie)
        add(index, *cookie);
    EXPECT_EQ(walk(index), ordered);
}

TEST(CookieIndex, AnswersAsAMapDoesWhateverWasAddedAndErased)
{
    std::mt19937 random(11);
    CookieIndex index;
    Reference reference;
    for (unsigned step = 0; step < 60'000; ++step) {
        const Cookie cookie = randomCookie(random);
        // It grows to thousands of elements and shrinks to few, twice.
        const bool grows = step / 15'000 % 2 == 0;
        if (random() % 4 < (grows ? 3u : 1u)) {
            const EntryPtr entry = new FsysDirectoryEntry;
            const auto known = reference.try_emplace(cookie, entry).first;
            ASSERT_EQ(index.insert(cookie, entry.get()), known->second.get());
        } else {
            ASSERT_EQ(index.erase(cookie), reference.erase(cookie) == 1);
        }
        const auto behind = reference.upper_bound(cookie);
        const CookieIndex::Element element = index.firstBehind(cookie);
        ASSERT_EQ(element.second, behind == reference.end() ? nullptr : behind->second.get());
        if (step % 5'000 == 0)
            expectSame(index, reference);
    }
    expectSame(index, reference);
}

TEST(CookieIndex, ErasesUntilNothingIsLeftFromBothEndsAndFromWithin)
{
    for (const int way : {0, 1, 2}) {
        std::mt19937 random(5);
        CookieIndex index;
        std::vector<std::uint64_t> clips;
        for (std::uint64_t clip = 0; clip < 5'000; ++clip)
            clips.push_back(clip);
        for (const std::uint64_t clip : clips)
            add(index, numbered(clip));
        if (way == 1)
            std::reverse(clips.begin(), clips.end());
        else if (way == 2)
            std::shuffle(clips.begin(), clips.end(), random);
        for (const std::uint64_t clip : clips)
            ASSERT_TRUE(index.erase(numbered(clip)));
        EXPECT_EQ(index.size(), 0u);
        EXPECT_EQ(index.first().second, nullptr);
        add(index, numbered(3));
        EXPECT_EQ(walk(index), std::vector<Cookie>{numbered(3)});
    }
}

TEST(CookieIndex, DropsWhatLeavesAndKeepsTheRest)
{
    std::mt19937 random(3);
    CookieIndex index;
    Reference reference;
    for (unsigned step = 0; step < 8'000; ++step) {
        const EntryPtr entry = new FsysDirectoryEntry;
        const Cookie cookie = randomCookie(random);
        if (reference.try_emplace(cookie, entry).second)
            index.insert(cookie, entry.get());
    }
    for (const unsigned keptOf : {2u, 50u, 1000u}) {
        std::set<const FsysDirectoryEntry*> leaving;
        unsigned place = 0;
        for (const auto& [cookie, entry] : reference)
            if (place++ % keptOf != 0)
                leaving.insert(entry.get());
        index.eraseIf([&](const FsysDirectoryEntry& entry) { return leaving.count(&entry) == 1; });
        std::erase_if(reference,
                      [&](const auto& element) { return leaving.count(element.second.get()) == 1; });
        expectSame(index, reference);
    }
    index.eraseIf([](const FsysDirectoryEntry&) { return true; });
    expectSame(index, {});
}
