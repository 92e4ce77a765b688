#include "Qz/Utf8.h"

#include <cstdint>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

using Narrow = LightweightString<char>;
using Wide = LightweightString<wchar_t>;

std::uint32_t codeOf(wchar_t character) { return static_cast<std::uint32_t>(character); }

bool isSurrogate(std::uint32_t code) { return code >= 0xD800 && code <= 0xDFFF; }

// Only real characters and escapes of bytes from 0x80 on come out of the decoder.
bool allPlausible(const Wide& text)
{
    for (const wchar_t character : text.view()) {
        const std::uint32_t code = codeOf(character);
        if (code > 0x10FFFF || (isSurrogate(code) && (code < 0xDC80 || code > 0xDCFF)))
            return false;
    }
    return true;
}

void expectRoundTrip(const std::string& bytes)
{
    const Wide wide = fromUTF8(bytes);
    ASSERT_TRUE(allPlausible(wide));
    ASSERT_EQ(toUTF8(wide).str(), bytes);
}

std::wstring escapesOf(const std::string& bytes)
{
    std::wstring escapes;
    for (const char byte : bytes)
        escapes += static_cast<wchar_t>(0xDC00 + static_cast<unsigned char>(byte));
    return escapes;
}

}  // namespace

TEST(Utf8, TextsOfOneToFourBytesPerCharacterConvert)
{
    const std::string bytes = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xAC";
    const std::wstring wide = L"a\x00E9\x20AC\x1F3AC";
    EXPECT_EQ(fromUTF8(bytes), wide);
    EXPECT_EQ(toUTF8(wide), bytes);
}

TEST(Utf8, EveryCharacterSurvivesTheRoundTrip)
{
    for (std::uint32_t code = 0; code <= 0x10FFFF; ++code) {
        if (isSurrogate(code))
            continue;
        const std::wstring wide(1, static_cast<wchar_t>(code));
        ASSERT_EQ(fromUTF8(toUTF8(wide)), wide) << std::hex << code;
    }
}

TEST(Utf8, TheEncodingHasTheRightLengthAtEachBoundary)
{
    EXPECT_EQ(toUTF8(std::wstring(1, L'\x7F')), "\x7F");
    EXPECT_EQ(toUTF8(std::wstring(1, L'\x80')), "\xC2\x80");
    EXPECT_EQ(toUTF8(std::wstring(1, L'\x7FF')), "\xDF\xBF");
    EXPECT_EQ(toUTF8(std::wstring(1, L'\x800')), "\xE0\xA0\x80");
    EXPECT_EQ(toUTF8(std::wstring(1, L'\xFFFF')), "\xEF\xBF\xBF");
    EXPECT_EQ(toUTF8(std::wstring(1, L'\x10000')), "\xF0\x90\x80\x80");
    EXPECT_EQ(toUTF8(std::wstring(1, L'\x10FFFF')), "\xF4\x8F\xBF\xBF");
}

TEST(Utf8, InvalidBytesBecomeOneEscapeEach)
{
    for (const std::string& bytes :
         {std::string("\x80"), std::string("\xBF"), std::string("\xC3"), std::string("\xE2\x82"),
          std::string("\xF0\x9F\x8E"), std::string("\xFE"), std::string("\xFF"),
          std::string("\xF8\x88\x80\x80\x80")})
        EXPECT_EQ(fromUTF8(bytes), escapesOf(bytes));
}

TEST(Utf8, OverlongFormsAreNotValid)
{
    for (const std::string& bytes : {std::string("\xC0\xAF"), std::string("\xC1\xBF"),
                                     std::string("\xE0\x9F\xBF"), std::string("\xF0\x8F\xBF\xBF")})
        EXPECT_EQ(fromUTF8(bytes), escapesOf(bytes));
}

TEST(Utf8, EncodedSurrogatesAreNotValid)
{
    for (const std::string& bytes :
         {std::string("\xED\xA0\x80"), std::string("\xED\xB2\x80"), std::string("\xED\xBF\xBF")})
        EXPECT_EQ(fromUTF8(bytes), escapesOf(bytes));
    EXPECT_EQ(fromUTF8("\xED\x9F\xBF"), L"\xD7FF");
    EXPECT_EQ(fromUTF8("\xEE\x80\x80"), L"\xE000");
}

TEST(Utf8, ValuesAboveTheHighestCharacterAreNotValid)
{
    for (const std::string& bytes : {std::string("\xF4\x90\x80\x80"), std::string("\xF7\xBF\xBF\xBF")})
        EXPECT_EQ(fromUTF8(bytes), escapesOf(bytes));
}

TEST(Utf8, AfterAnInvalidByteTheNextCharacterIsRead)
{
    EXPECT_EQ(fromUTF8("\xE2\x82z"), (escapesOf("\xE2\x82") + L"z"));
    EXPECT_EQ(fromUTF8("\xE2\xC3\xA9"), (escapesOf("\xE2") + L"\x00E9"));
}

TEST(Utf8, EverySequenceOfUpToTwoBytesSurvivesTheRoundTrip)
{
    expectRoundTrip("");
    for (int first = 0; first < 256; ++first) {
        expectRoundTrip(std::string(1, static_cast<char>(first)));
        for (int second = 0; second < 256; ++second)
            expectRoundTrip({static_cast<char>(first), static_cast<char>(second)});
    }
}

TEST(Utf8, EverySequenceOfThreeBytesSurvivesTheRoundTrip)
{
    // The 256 sequences with one beginning go in one text: the bar between them ends any sequence.
    std::string bytes;
    for (int first = 0; first < 256; ++first)
        for (int second = 0; second < 256; ++second) {
            bytes.clear();
            for (int third = 0; third < 256; ++third)
                bytes += {static_cast<char>(first), static_cast<char>(second), static_cast<char>(third), '|'};
            expectRoundTrip(bytes);
        }
}

TEST(Utf8, RandomSequencesSurviveTheRoundTrip)
{
    std::mt19937 random(20240611);
    for (int round = 0; round < 20000; ++round) {
        std::string bytes(random() % 40, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random() % 4 ? 0x80 + random() % 0x80 : random() % 0x80);
        expectRoundTrip(bytes);
    }
}

TEST(Utf8, CodesThatNoUtf8HasBecomeTheReplacementCharacter)
{
    const std::string replacement = "\xEF\xBF\xBD";
    for (const std::uint32_t code :
         {0xD800u, 0xDBFFu, 0xDC00u, 0xDC7Fu, 0xDD00u, 0xDFFFu, 0x110000u, 0xFFFFFFFFu})
        EXPECT_EQ(toUTF8(std::wstring(1, static_cast<wchar_t>(code))), replacement) << std::hex << code;
}

TEST(Utf8, AnEscapeGoesBackToItsByte)
{
    EXPECT_EQ(toUTF8(std::wstring{static_cast<wchar_t>(0xDC80), static_cast<wchar_t>(0xDCFF)}), "\x80\xFF");
}

TEST(Utf8, NullStaysNullAndEmptyStaysEmpty)
{
    EXPECT_TRUE(toUTF8(Wide()).isNull());
    EXPECT_TRUE(fromUTF8(Narrow()).isNull());
    EXPECT_TRUE(fromUTF8(static_cast<const char*>(nullptr)).isNull());
    EXPECT_TRUE(toUTF8(static_cast<const wchar_t*>(nullptr)).isNull());
    EXPECT_FALSE(toUTF8(Wide(L"")).isNull());
    EXPECT_FALSE(fromUTF8(Narrow("")).isNull());
    EXPECT_FALSE(fromUTF8("").isNull());
    EXPECT_FALSE(toUTF8(L"").isNull());
}

TEST(Utf8, APointerEndsAtTheZeroAndOtherTextsDoNot)
{
    EXPECT_EQ(fromUTF8("ab\0cd").size(), 2u);
    EXPECT_EQ(toUTF8(L"ab\0cd").size(), 2u);
    EXPECT_EQ(fromUTF8(std::string_view("ab\0cd", 5)).size(), 5u);
    EXPECT_EQ(fromUTF8(Narrow(std::string_view("ab\0cd", 5))).size(), 5u);
    EXPECT_EQ(toUTF8(Wide(std::wstring_view(L"ab\0cd", 5))).size(), 5u);
}

TEST(Utf8, AppendingKeepsWhatIsThereAndConvertsTheRest)
{
    std::wstring text = L"a";
    appendFromUTF8(text, "plain.mov");
    EXPECT_EQ(text, L"aplain.mov");
    appendFromUTF8(text, "");
    appendFromUTF8(text, {});
    EXPECT_EQ(text, L"aplain.mov");
    appendFromUTF8(text, std::string_view("\xc3\xa9x\xff\xf0\x9f\x8e\xacy\0z", 11));
    EXPECT_EQ(text, std::wstring(L"aplain.mov\u00e9x\xdcff\U0001F3ACy\0z", 17));
}
