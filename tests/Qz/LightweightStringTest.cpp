#include "Qz/LightweightString.h"

#include <map>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Narrow = LightweightString<char>;
using Wide = LightweightString<wchar_t>;

const char* const nullText = nullptr;

}  // namespace

TEST(LightweightString, ADefaultOneIsNull)
{
    const Wide text;
    EXPECT_TRUE(text.isNull());
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(text.size(), 0u);
    ASSERT_NE(text.c_str(), nullptr);
    EXPECT_EQ(text.c_str()[0], L'\0');
}

TEST(LightweightString, AnEmptyTextIsNotNull)
{
    EXPECT_FALSE(Narrow("").isNull());
    EXPECT_FALSE(Narrow(std::string()).isNull());
    EXPECT_TRUE(Narrow("").empty());
    EXPECT_STREQ(Narrow("").c_str(), "");
}

TEST(LightweightString, NullAndEmptyCompareEqual)
{
    EXPECT_EQ(Narrow(), Narrow(""));
    EXPECT_EQ(Narrow(), "");
    EXPECT_EQ(std::hash<Narrow>()(Narrow()), std::hash<Narrow>()(Narrow("")));
}

TEST(LightweightString, ANullPointerIsANullStringWhereverATextIsTaken)
{
    EXPECT_TRUE(Narrow(nullText).isNull());
    EXPECT_EQ(Narrow(), nullText);
    EXPECT_NE(Narrow("a"), nullText);
    EXPECT_EQ(Narrow("a") + nullText, "a");
    EXPECT_EQ(nullText + Narrow("a"), "a");
    Narrow text("a");
    text += nullText;
    EXPECT_EQ(text, "a");
}

TEST(LightweightString, ACopySharesTheTextAndEqualTextsNeedNotShare)
{
    const Narrow first("text");
    const Narrow copy(first);
    EXPECT_TRUE(copy.sharesBodyWith(first));
    EXPECT_EQ(copy.c_str(), first.c_str());
    const Narrow other("text");
    EXPECT_FALSE(other.sharesBodyWith(first));
    EXPECT_EQ(other, first);
}

TEST(LightweightString, ATextThatWasMovedFromIsNull)
{
    Narrow from("text");
    const Narrow to(std::move(from));
    EXPECT_EQ(to, "text");
    EXPECT_TRUE(from.isNull());  // NOLINT(bugprone-use-after-move)
}

TEST(LightweightString, AssigningToItselfKeepsTheText)
{
    Narrow text("text");
    Narrow& same = text;
    text = same;
    EXPECT_EQ(text, "text");
    text = std::move(same);
    EXPECT_EQ(text, "text");
}

TEST(LightweightString, AssigningReplacesTheTextOfThisOneOnly)
{
    Narrow first("one");
    const Narrow second = first;
    first = "two";
    EXPECT_EQ(first, "two");
    EXPECT_EQ(second, "one");
}

TEST(LightweightString, AppendingToACopyLeavesTheOthersAlone)
{
    const Narrow original("text");
    Narrow copy = original;
    copy += '!';
    EXPECT_EQ(copy, "text!");
    EXPECT_EQ(original, "text");
    EXPECT_FALSE(copy.sharesBodyWith(original));
}

TEST(LightweightString, AppendingInPlaceKeepsLaterCopiesApart)
{
    Narrow text;
    std::string expected;
    std::vector<Narrow> copies;
    for (char c = 'a'; c <= 'z'; ++c) {
        text += c;
        copies.push_back(text);
        expected += c;
        EXPECT_STREQ(text.c_str(), expected.c_str());
    }
    for (std::size_t i = 0; i < copies.size(); ++i)
        EXPECT_EQ(copies[i], expected.substr(0, i + 1));
}

TEST(LightweightString, AppendingToItselfDoublesTheText)
{
    Narrow text("ab");
    std::string expected("ab");
    for (int i = 0; i < 10; ++i) {
        text += text;
        expected += expected;
        ASSERT_EQ(text, expected);
    }
}

TEST(LightweightString, APartOfItselfCanBeAppendedWhetherItGrowsInPlaceOrNot)
{
    Narrow text("abc");
    std::string expected("abc");
    for (int i = 0; i < 200; ++i) {
        text += text.view().substr(1, 2);
        expected += expected.substr(1, 2);
        ASSERT_EQ(text, expected);
        text += text.c_str() + text.size() - 1;
        expected += std::string(1, expected.back());
        ASSERT_STREQ(text.c_str(), expected.c_str());
    }
}

TEST(LightweightString, AddingNoCharactersLeavesNullNullAndEmptyEmpty)
{
    Narrow null;
    null += "";
    null += Narrow();
    EXPECT_TRUE(null.isNull());
    EXPECT_TRUE((null + null).isNull());
    Narrow empty("");
    empty += null;
    EXPECT_FALSE(empty.isNull());
    EXPECT_FALSE((empty + null).isNull());
}

TEST(LightweightString, AddingNoCharactersSharesTheText)
{
    const Narrow text("text");
    EXPECT_TRUE((text + "").sharesBodyWith(text));
}

TEST(LightweightString, ANullStringGrowsByAppending)
{
    Wide text;
    text += L"ab";
    text += L'c';
    EXPECT_EQ(text, L"abc");
}

TEST(LightweightString, SumsTakeTextsOfAllKindsOnBothSides)
{
    const Narrow b("b");
    EXPECT_EQ(b + b, "bb");
    EXPECT_EQ(b + "c", "bc");
    EXPECT_EQ("a" + b, "ab");
    EXPECT_EQ(b + 'c', "bc");
    EXPECT_EQ('a' + b, "ab");
    EXPECT_EQ(b + std::string("c"), "bc");
    EXPECT_EQ(std::string("a") + b, "ab");
    EXPECT_EQ(b + std::string_view("c"), "bc");
    EXPECT_EQ(b, "b");
}

TEST(LightweightString, ComparisonsTakeTextsOfAllKindsOnBothSides)
{
    const Narrow text("text");
    EXPECT_TRUE(text == "text" && "text" == text && text != "tex");
    EXPECT_TRUE(text == std::string("text") && std::string("text") == text && text != std::string("t"));
    EXPECT_TRUE(text == std::string_view("text") && std::string_view("text") == text);
    EXPECT_TRUE(text < Narrow("texu") && text <= Narrow("text") && text > Narrow("tex"));
}

TEST(LightweightString, OrderIsByCharacterCodesFromTheLeft)
{
    EXPECT_LT(Narrow(), Narrow("a"));
    EXPECT_LT(Narrow("Z"), Narrow("a"));
    EXPECT_LT(Narrow("z"), Narrow("\xC3\xA9"));  // bytes count as unsigned
    EXPECT_LT(Narrow("ab"), Narrow("abc"));
}

TEST(LightweightString, AZeroInsideTheTextIsACharacterLikeAnyOther)
{
    const Narrow text(std::string_view("a\0b", 3));
    EXPECT_EQ(text.size(), 3u);
    EXPECT_NE(text, "a");
    EXPECT_EQ((text + "c").size(), 4u);
}

TEST(LightweightString, IndexingAtOrPastTheEndYieldsZero)
{
    const Wide text(L"ab");
    EXPECT_EQ(text[1], L'b');
    EXPECT_EQ(text[2], L'\0');
    EXPECT_EQ(text[1000], L'\0');
    EXPECT_EQ(Wide()[0], L'\0');
}

TEST(LightweightString, PartsMayReachPastTheEnd)
{
    const Narrow text("abc");
    EXPECT_EQ(text.substr(1), "bc");
    EXPECT_EQ(text.substr(1, 1), "b");
    EXPECT_EQ(text.substr(2, 100), "c");
    EXPECT_TRUE(text.substr(3).empty());
    EXPECT_TRUE(text.substr(100, 100).empty());
    EXPECT_TRUE(Narrow().substr(0).empty());
}

TEST(LightweightString, SearchesAnswerThePositionOrNpos)
{
    const Narrow text("a.b.c");
    EXPECT_EQ(text.find('.'), 1u);
    EXPECT_EQ(text.find('.', 2), 3u);
    EXPECT_EQ(text.rfind('.'), 3u);
    EXPECT_EQ(text.find("b."), 2u);
    EXPECT_EQ(text.find('x'), Narrow::npos);
    EXPECT_EQ(text.find("x", 100), Narrow::npos);
    EXPECT_EQ(Narrow().rfind('.'), Narrow::npos);
}

TEST(LightweightString, BeginAndEndCanBeTested)
{
    const Narrow text("clip.mov");
    EXPECT_TRUE(text.startsWith("clip"));
    EXPECT_FALSE(text.startsWith("clip.mov."));
    EXPECT_TRUE(text.endsWith(".mov"));
    EXPECT_FALSE(text.endsWith(".MOV"));
    EXPECT_TRUE(Narrow().startsWith(""));
}

TEST(LightweightString, ItServesAsAKeyOfOrderedAndHashedContainers)
{
    std::map<Wide, int> ordered;
    ordered[L"b"] = 2;
    ordered[L"a"] = 1;
    EXPECT_EQ(ordered.begin()->second, 1);
    std::unordered_set<Wide> hashed{L"a", L"b", L"a"};
    EXPECT_EQ(hashed.size(), 2u);
}

TEST(LightweightString, CopiesOnSeveralThreadsShareAndPartWithoutARace)
{
    const Wide shared(L"shared");
    std::vector<std::thread> threads;
    std::vector<Wide> results(4);
    for (std::size_t i = 0; i < results.size(); ++i)
        threads.emplace_back([&shared, &result = results[i]] {
            for (int round = 0; round < 2000; ++round) {
                Wide copy = shared;
                copy += L'!';
                result = copy;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const Wide& result : results)
        EXPECT_EQ(result, L"shared!");
    EXPECT_EQ(shared, L"shared");
}
