#include "Qz/Cookie.h"

#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr std::uint64_t sampleClip = 0x0123456789ABCDEFu;
const std::string sampleText = "V0123456789ABCDEF07";

Cookie parsed(const std::string& text, bool complete = true)
{
    return {LightweightString<char>(text), complete};
}

void expectParts(const Cookie& cookie, CookieType type, std::uint64_t clip, unsigned char channel)
{
    EXPECT_EQ(cookie.getType(), type);
    EXPECT_EQ(cookie.getClip(), clip);
    EXPECT_EQ(cookie.getChannel(), channel);
}

struct Less
{
    bool operator()(const Cookie& a, const Cookie& b) const { return a.compare(b) < 0; }
};

}  // namespace

TEST(Cookie, ItIsSmallEnoughToPassByValue) { EXPECT_EQ(sizeof(Cookie), 16u); }

TEST(Cookie, TheTypesAreTheirLetters)
{
    EXPECT_EQ(static_cast<char>(CookieTypeVision), 'V');
    EXPECT_EQ(static_cast<char>(CookieTypeSound), 'S');
    EXPECT_EQ(static_cast<char>(CookieTypeInvalid), 'I');
}

TEST(Cookie, TheCompleteFormHasTypeClipAndChannelInUpperCase)
{
    const Cookie cookie(CookieTypeVision, sampleClip, 7);
    EXPECT_EQ(cookie.asString(true), sampleText);
    EXPECT_EQ(cookie.asWString(), L"V0123456789ABCDEF07");
}

TEST(Cookie, EveryCompleteFormHasTheSameLength)
{
    EXPECT_EQ(Cookie(CookieTypeSound, 0, 0).asString(true), "S000000000000000000");
    EXPECT_EQ(Cookie(CookieTypeSound, ~std::uint64_t{0}, 255).asString(true), "SFFFFFFFFFFFFFFFFFF");
}

TEST(Cookie, TheShortFormIsTheClipAlone)
{
    EXPECT_EQ(Cookie(CookieTypeSound, sampleClip, 7).asString(false), "0123456789ABCDEF");
}

TEST(Cookie, ADefaultOneIsInvalidAndPrintsNothing)
{
    const Cookie cookie;
    EXPECT_FALSE(cookie.valid());
    EXPECT_EQ(cookie.getType(), CookieTypeInvalid);
    EXPECT_TRUE(cookie.asString(true).empty());
    EXPECT_TRUE(cookie.asString(false).empty());
    EXPECT_TRUE(cookie.asWString().empty());
}

TEST(Cookie, AnUnknownTypeMakesTheInvalidCookie)
{
    EXPECT_EQ(Cookie(CookieTypeInvalid, sampleClip, 7), Cookie());
    EXPECT_EQ(Cookie(static_cast<CookieType>('X'), sampleClip, 7), Cookie());
}

TEST(Cookie, ACompleteFormParsesToItsParts)
{
    expectParts(parsed(sampleText), CookieTypeVision, sampleClip, 7);
    expectParts(parsed("S00000000000000FFFF"), CookieTypeSound, 0xFF, 255);
}

TEST(Cookie, TheWideFormIsItsOwnInverse)
{
    for (const Cookie& cookie : {Cookie(CookieTypeVision, 0, 0), Cookie(CookieTypeSound, sampleClip, 0xA0)}) {
        EXPECT_EQ(Cookie(cookie.asWString(), true), cookie);
        EXPECT_EQ(Cookie(cookie.asWString(), true).asWString(), cookie.asWString());
    }
}

TEST(Cookie, LowerCaseParsesButPrintsInUpperCase)
{
    const Cookie cookie = parsed("v0123456789abcdef0a");
    EXPECT_EQ(cookie.asString(true), "V0123456789ABCDEF0A");
}

TEST(Cookie, BlanksAroundParseButAreNotPrinted)
{
    EXPECT_EQ(parsed("  " + sampleText + "\t ").asString(true), sampleText);
    EXPECT_FALSE(parsed("V01234567 89ABCDEF07").valid());
}

TEST(Cookie, OtherTextsAreInvalid)
{
    for (const char* text :
         {"", " ", "V", "V0123456789ABCDEF0", "V0123456789ABCDEF070", "X0123456789ABCDEF07",
          "I0123456789ABCDEF07", "V0123456789ABCDEG07", "V0123456789ABCDEF0-", "V-123456789ABCDEF07",
          "V0x23456789ABCDEF07", "hello.mov"})
        EXPECT_EQ(parsed(text), Cookie()) << text;
}

TEST(Cookie, ANullTextIsInvalid)
{
    EXPECT_FALSE(Cookie(LightweightString<char>(), true).valid());
    EXPECT_FALSE(Cookie(LightweightString<wchar_t>(), false).valid());
}

TEST(Cookie, FullWidthDigitsAreNoDigits)
{
    EXPECT_FALSE(Cookie(LightweightString<wchar_t>(L"V\xFF10"
                                                   L"123456789ABCDEF07"),
                        true)
                     .valid());
}

TEST(Cookie, AZeroByteInsideTheTextIsNotItsEnd)
{
    EXPECT_FALSE(parsed(sampleText + std::string(1, '\0')).valid());
}

TEST(Cookie, TheShortFormParsesOnlyWhenAskedFor)
{
    EXPECT_FALSE(parsed("0123456789abcdef", true).valid());
    expectParts(parsed(" 0123456789abcdef", false), CookieTypeVision, sampleClip, 0);
    expectParts(parsed(sampleText, false), CookieTypeVision, sampleClip, 7);
    EXPECT_FALSE(parsed("0123456789abcdeg", false).valid());
}

TEST(Cookie, OrderIsByClipThenTypeThenChannel)
{
    const std::vector<Cookie> rising = {
        Cookie(),
        Cookie(CookieTypeSound, 0, 0),
        Cookie(CookieTypeSound, 1, 0),
        Cookie(CookieTypeSound, 1, 255),
        Cookie(CookieTypeVision, 1, 0),
        Cookie(CookieTypeSound, 0xFFFFFFFFFFFFFFFFu, 0),
    };
    for (std::size_t i = 0; i < rising.size(); ++i)
        for (std::size_t j = 0; j < rising.size(); ++j) {
            const int order = rising[i].compare(rising[j]);
            EXPECT_EQ(order < 0, i < j) << i << " " << j;
            EXPECT_EQ(order > 0, i > j) << i << " " << j;
            EXPECT_EQ(rising[i] == rising[j], i == j);
            EXPECT_EQ(rising[i] < rising[j], i < j);
        }
}

TEST(Cookie, ConvertingKeepsTheClipAndReplacesTypeAndChannel)
{
    const Cookie vision(CookieTypeVision, sampleClip, 0);
    const Cookie sound = convertCookie(vision, CookieTypeSound, 255);
    expectParts(sound, CookieTypeSound, sampleClip, 255);
    EXPECT_EQ(convertCookie(sound, CookieTypeVision, 0), vision);
}

TEST(Cookie, AnInvalidCookieStaysInvalidWhenConverted)
{
    EXPECT_EQ(convertCookie(Cookie(), CookieTypeSound, 3), Cookie());
}

TEST(Cookie, NewCookiesHaveTheTypeAskedForAndChannelZero)
{
    EXPECT_EQ(Cookie::makeNew().getType(), CookieTypeVision);
    EXPECT_EQ(Cookie::makeNew(CookieTypeSound).getType(), CookieTypeSound);
    EXPECT_EQ(Cookie::makeNew().getChannel(), 0);
}

TEST(Cookie, NewCookiesOfSeveralThreadsAreAllDifferent)
{
    constexpr std::size_t threadCount = 4;
    constexpr std::size_t perThread = 2000;
    std::vector<std::vector<Cookie>> made(threadCount);
    std::vector<std::thread> threads;
    for (std::vector<Cookie>& mine : made)
        threads.emplace_back([&mine] {
            for (std::size_t i = 0; i < perThread; ++i)
                mine.push_back(Cookie::makeNew());
        });
    for (std::thread& thread : threads)
        thread.join();
    std::set<Cookie, Less> all;
    for (const std::vector<Cookie>& some : made)
        all.insert(some.begin(), some.end());
    EXPECT_EQ(all.size(), threadCount * perThread);
}
