#include "Qz/StringHelpers.h"

#include <limits>
#include <utility>

#include <gtest/gtest.h>

namespace {

using Wide = LightweightString<wchar_t>;

// Both letters of every pair fold to the second one.
void expectPairs(std::initializer_list<std::pair<unsigned, unsigned>> pairs)
{
    for (const auto& [upper, lower] : pairs) {
        EXPECT_EQ(Qz::foldCase(static_cast<wchar_t>(upper)), static_cast<wchar_t>(lower))
            << std::hex << upper;
        EXPECT_EQ(Qz::foldCase(static_cast<wchar_t>(lower)), static_cast<wchar_t>(lower))
            << std::hex << lower;
    }
}

void expectUnchanged(std::initializer_list<unsigned> codes)
{
    for (const unsigned code : codes)
        EXPECT_EQ(Qz::foldCase(static_cast<wchar_t>(code)), static_cast<wchar_t>(code)) << std::hex << code;
}

}  // namespace

TEST(WStringFromInteger, NumbersArePlainDecimal)
{
    EXPECT_EQ(Qz::WStringFromInteger(0), L"0");
    EXPECT_EQ(Qz::WStringFromInteger(1080), L"1080");
    EXPECT_EQ(Qz::WStringFromInteger(4294967295), L"4294967295");
    EXPECT_EQ(Qz::WStringFromInteger(-12), L"-12");
}

TEST(WStringFromInteger, TheLimitsAreWritten)
{
    EXPECT_EQ(Qz::WStringFromInteger(std::numeric_limits<long>::max()), L"9223372036854775807");
    EXPECT_EQ(Qz::WStringFromInteger(std::numeric_limits<long>::min()), L"-9223372036854775808");
}

TEST(EndsWith, TheLastCharacterDecides)
{
    EXPECT_TRUE(Qz::endsWith(L"/media/", L'/', true));
    EXPECT_FALSE(Qz::endsWith(L"/media", L'/', true));
}

TEST(EndsWith, AnEmptyOrNullTextEndsWithNothing)
{
    EXPECT_FALSE(Qz::endsWith(L"", L'/', true));
    EXPECT_FALSE(Qz::endsWith(Wide(), L'\0', true));
    EXPECT_FALSE(Qz::endsWith(Wide(), L'\0', false));
}

TEST(EndsWith, CaseCountsOnlyWhenAskedFor)
{
    EXPECT_FALSE(Qz::endsWith(L"fileX", L'x', true));
    EXPECT_TRUE(Qz::endsWith(L"fileX", L'x', false));
    EXPECT_TRUE(Qz::endsWith(L"file\x00C9", L'\x00E9', false));
    EXPECT_FALSE(Qz::endsWith(L"fileX", L'y', false));
}

TEST(FoldCase, AsciiLettersFoldAndTheirNeighboursDoNot)
{
    expectPairs({{'A', 'a'}, {'M', 'm'}, {'Z', 'z'}});
    expectUnchanged({0, '0', '@', '[', '`', '{', 0x7F});
}

TEST(FoldCase, Latin1LettersFold)
{
    expectPairs({{0xC0, 0xE0}, {0xC9, 0xE9}, {0xD6, 0xF6}, {0xD8, 0xF8}, {0xDE, 0xFE}, {0xB5, 0x3BC}});
    expectUnchanged({0xA0, 0xD7, 0xDF, 0xF7, 0xFF});
}

TEST(FoldCase, LatinExtendedALettersFold)
{
    expectPairs({{0x100, 0x101},
                 {0x12E, 0x12F},
                 {0x132, 0x133},
                 {0x139, 0x13A},
                 {0x147, 0x148},
                 {0x14A, 0x14B},
                 {0x160, 0x161},
                 {0x176, 0x177},
                 {0x178, 0xFF},
                 {0x179, 0x17A},
                 {0x17D, 0x17E},
                 {0x17F, 's'}});
    expectUnchanged({0x138, 0x149});
}

TEST(FoldCase, TheDottedAndTheDotlessIFoldToNothingElse)
{
    // Their folding needs two characters or a language, so each is a letter of its own.
    expectUnchanged({0x130, 0x131});
}

TEST(FoldCase, LatinExtendedBLettersFold)
{
    expectPairs({{0x181, 0x253},
                 {0x182, 0x183},
                 {0x186, 0x254},
                 {0x18E, 0x1DD},
                 {0x1C4, 0x1C6},
                 {0x1C5, 0x1C6},
                 {0x1CD, 0x1CE},
                 {0x1F1, 0x1F3},
                 {0x1F6, 0x195},
                 {0x1F7, 0x1BF},
                 {0x1F8, 0x1F9},
                 {0x220, 0x19E},
                 {0x23A, 0x2C65},
                 {0x243, 0x180},
                 {0x24E, 0x24F}});
    expectUnchanged({0x180, 0x18D, 0x1BB, 0x1C0, 0x1F0, 0x221, 0x250});
}

TEST(FoldCase, LatinLettersOfTheLaterBlocksFold)
{
    expectPairs({{0x1E00, 0x1E01},
                 {0x1E9B, 0x1E61},
                 {0x1E9E, 0xDF},
                 {0x1EA0, 0x1EA1},
                 {0x1EFE, 0x1EFF},
                 {0x2C60, 0x2C61},
                 {0x2C62, 0x26B},
                 {0xA722, 0xA723},
                 {0xA7AA, 0x266},
                 {0xA7C0, 0xA7C1}});
}

TEST(FoldCase, GreekLettersFoldAndAFinalSigmaIsASigma)
{
    expectPairs({{0x386, 0x3AC},
                 {0x388, 0x3AD},
                 {0x38C, 0x3CC},
                 {0x391, 0x3B1},
                 {0x3A1, 0x3C1},
                 {0x3A3, 0x3C3},
                 {0x3C2, 0x3C3},
                 {0x3A9, 0x3C9},
                 {0x3AB, 0x3CB},
                 {0x3D8, 0x3D9},
                 {0x3D0, 0x3B2},
                 {0x3F4, 0x3B8},
                 {0x3FF, 0x37D},
                 {0x1F08, 0x1F00},
                 {0x1F88, 0x1F80},
                 {0x1FFC, 0x1FF3}});
    expectUnchanged({0x390, 0x3A2, 0x3B0, 0x3F6});
}

TEST(FoldCase, CyrillicLettersFold)
{
    expectPairs({{0x400, 0x450},
                 {0x401, 0x451},
                 {0x40F, 0x45F},
                 {0x410, 0x430},
                 {0x42F, 0x44F},
                 {0x460, 0x461},
                 {0x480, 0x481},
                 {0x48A, 0x48B},
                 {0x4C0, 0x4CF},
                 {0x4C1, 0x4C2},
                 {0x4FE, 0x4FF},
                 {0x500, 0x501},
                 {0x52E, 0x52F},
                 {0x1C80, 0x432},
                 {0xA640, 0xA641},
                 {0xA69A, 0xA69B}});
    expectUnchanged({0x482, 0x483});
}

TEST(FoldCase, ArmenianLettersFold)
{
    expectPairs({{0x531, 0x561}, {0x540, 0x570}, {0x556, 0x586}});
    expectUnchanged({0x530, 0x557, 0x587});
}

TEST(FoldCase, FullWidthLettersFoldToFullWidthLetters)
{
    expectPairs({{0xFF21, 0xFF41}, {0xFF3A, 0xFF5A}});
    expectUnchanged({0xFF10, 0xFF20, 0xFF3B});
}

TEST(FoldCase, CharactersOfOtherBlocksStayAsTheyAre)
{
    expectUnchanged({0x5D0, 0x4E2D, 0x10A0, 0x13A0, 0x212A, 0x2160, 0x24B6, 0xDC80, 0x10400, 0x1F600,
                     0x10FFFF, 0x110000, 0xFFFFFFFFu});
}

TEST(FoldCase, FoldingTwiceIsFoldingOnce)
{
    unsigned folding = 0;
    for (wchar_t code = 0; code <= 0x10FFFF; ++code) {
        const wchar_t folded = Qz::foldCase(code);
        ASSERT_EQ(Qz::foldCase(folded), folded) << std::hex << static_cast<unsigned>(code);
        folding += folded != code ? 1 : 0;
    }
    EXPECT_EQ(folding, 873u);
}

TEST(EqualsIgnoringCase, TextsOfAnyScriptCompareByFoldedCharacters)
{
    EXPECT_TRUE(Qz::equalsIgnoringCase(L"\x041F\x0443\x0442\x044C/Media", L"\x043F\x0423\x0422\x042C/mEDIA"));
    EXPECT_TRUE(Qz::equalsIgnoringCase(L"", L""));
    EXPECT_FALSE(Qz::equalsIgnoringCase(L"media", L"medi"));
    EXPECT_FALSE(Qz::equalsIgnoringCase(L"medi", L"media"));
    EXPECT_FALSE(Qz::equalsIgnoringCase(L"media", L"medio"));
    EXPECT_TRUE(Qz::equalsIgnoringCase(Wide(L"A"), Wide(L"a")));
    EXPECT_TRUE(Qz::equalsIgnoringCase(Wide(), L""));
}

TEST(EqualsIgnoringCase, NothingIsNormalised)
{
    EXPECT_FALSE(Qz::equalsIgnoringCase(L"\x00E9", L"e\x0301"));
    EXPECT_FALSE(Qz::equalsIgnoringCase(L"\x00DF", L"ss"));
}

TEST(EqualsIgnoringCase, NarrowTextsFoldAsciiOnly)
{
    EXPECT_TRUE(Qz::equalsIgnoringCase("Name", "nAME"));
    EXPECT_FALSE(Qz::equalsIgnoringCase("Name", "Names"));
    EXPECT_FALSE(Qz::equalsIgnoringCase("\xC9", "\xE9"));
    EXPECT_FALSE(Qz::equalsIgnoringCase("@", "`"));
}

TEST(StartsWithIgnoringCase, APrefixMatchesWhateverItsCase)
{
    EXPECT_TRUE(Qz::startsWithIgnoringCase(L"\\\\Server\\Share\\file", L"\\\\sERVER\\share"));
    EXPECT_TRUE(Qz::startsWithIgnoringCase(L"abc", L""));
    EXPECT_TRUE(Qz::startsWithIgnoringCase(L"abc", L"ABC"));
    EXPECT_FALSE(Qz::startsWithIgnoringCase(L"abc", L"abcd"));
    EXPECT_FALSE(Qz::startsWithIgnoringCase(L"abc", L"b"));
}
