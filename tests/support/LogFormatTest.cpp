#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

#include "LogRecorder.h"

namespace {

// Formats that are wrong on purpose are tested too, so the compiler does not see the literals.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
template <class... Values>
std::string logged(const char* format, Values... values)
{
    LogRecorder recorder;
    Log(format, values...);
    return recorder.texts.size() == 1 ? recorder.texts[0].substr(4) : "not logged once";
}

template <class... Values>
std::string printed(const char* format, Values... values)
{
    std::string text(2000, '\0');
    text.resize(static_cast<std::size_t>(std::snprintf(text.data(), text.size(), format, values...)));
    return text;
}
#pragma GCC diagnostic pop

template <class... Values>
void expectAsPrintf(const char* format, Values... values)
{
    EXPECT_EQ(logged(format, values...), printed(format, values...)) << format;
}

TEST(LogFormat, TextWithoutDirectivesStaysAsItIs)
{
    EXPECT_EQ(logged("plain\n"), "plain\n");
    EXPECT_EQ(logged(""), "");
    EXPECT_EQ(logged("100%% of %d%%", 5), "100% of 5%");
}

TEST(LogFormat, IntegersAreWrittenAsPrintfWritesThem)
{
    for (const char* format :
         {"%d", "%i", "%5d|", "%-5d|", "%05d", "%+d", "% d", "%.3d", "%8.3d", "%hd", "%hhd"})
        for (const int value : {0, 7, -42, 300, INT_MIN, INT_MAX})
            expectAsPrintf(format, value);
    for (const char* format : {"%u", "%o", "%x", "%X", "%8x", "%#x", "0x%x", "%#o", "%hu", "%hhx"})
        for (const unsigned value : {0u, 7u, 70000u, UINT_MAX})
            expectAsPrintf(format, value);
}

TEST(LogFormat, WideIntegersKeepAllTheirBits)
{
    expectAsPrintf("%ld %lu %lx", LONG_MIN, ULONG_MAX, ULONG_MAX);
    expectAsPrintf("%lld %llu", LLONG_MIN, ULLONG_MAX);
    expectAsPrintf("%jd %ju", INTMAX_MIN, UINTMAX_MAX);
    expectAsPrintf("%zu %td %zx", SIZE_MAX, PTRDIFF_MIN, SIZE_MAX);
}

TEST(LogFormat, RealNumbersAreWrittenAsPrintfWritesThem)
{
    for (const char* format : {"%f", "%.1f", "%.0f", "%10.2f", "%-10.2f|", "%e", "%G", "%a", "%.1fms", "%lf"})
        for (const double value : {0.0, 1234.56, -0.05, DBL_MAX, std::numeric_limits<double>::infinity()})
            expectAsPrintf(format, value);
    expectAsPrintf("%Lf %.3Le", 1.25L, LDBL_MAX);
}

TEST(LogFormat, CharactersAndPointersAreWrittenAsPrintfWritesThem)
{
    int object = 0;
    expectAsPrintf("'%c' %3c|%-3c|", 'D', 'a', 'b');
    expectAsPrintf("%p", static_cast<void*>(&object));
}

TEST(LogFormat, NarrowTextIsWrittenAsPrintfWritesIt)
{
    for (const char* format : {"%s", "%10s|", "%-10s|", "%.2s|", "%10.2s|", "%.0s|", "%.s|"})
        expectAsPrintf(format, "clip");
}

TEST(LogFormat, WidthAndPrecisionMayBeArguments)
{
    expectAsPrintf("%*d|%-*d|%*d|", 5, 1, 5, 2, -5, 3);
    expectAsPrintf("%.*f %.*f", 2, 1.0, -1, 1.0);
    expectAsPrintf("%*.*s|", 6, 2, "clip");
    EXPECT_EQ(logged("%*.*ls|", -6, 2, L"clip"), "cl    |");
}

TEST(LogFormat, SeveralDirectivesTakeTheirArgumentsInOrder)
{
    EXPECT_EQ(logged("%s %d %ls %.1f %lld %c", "a", 1, L"b", 2.5, 3LL, 'c'), "a 1 b 2.5 3 c");
}

TEST(LogFormat, WideTextIsWrittenAsUtf8InTheCLocale)
{
    EXPECT_EQ(logged("Added media location : %ls\n", L"/m/K\u00F6ln/\u65E5\u672C \U0001F3AC"),
              "Added media location : /m/K\xC3\xB6ln/\xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x8E\xAC\n");
    EXPECT_EQ(logged("%lc%lc", L'\u00F6', L'x'), "\xC3\xB6x");
}

TEST(LogFormat, BytesOfNamesThatAreNoUtf8ComeOutUnchanged)
{
    EXPECT_EQ(logged("%ls", L"a\xDC80\xDCFFz"), "a\x80\xFFz");
}

TEST(LogFormat, WidthAndPrecisionOfWideTextCountBytes)
{
    EXPECT_EQ(logged("%5ls|", L"\u00F6"), "   \xC3\xB6|");
    EXPECT_EQ(logged("%-5ls|", L"\u00F6"), "\xC3\xB6   |");
    EXPECT_EQ(logged("%.3ls|", L"abcd"), "abc|");
    EXPECT_EQ(logged("%.4ls|", L"\u00F6\u00F6\u00F6"), "\xC3\xB6\xC3\xB6|");
}

TEST(LogFormat, APrecisionNeverCutsACharacterInTwo)
{
    EXPECT_EQ(logged("%.3ls|", L"\u00F6\u00F6"), "\xC3\xB6|");
    EXPECT_EQ(logged("%.3ls|", L"\U0001F3AC"), "|");
    EXPECT_EQ(logged("%.0ls|", L"abc"), "|");
}

TEST(LogFormat, WithAPrecisionTextNeedsNoTerminatingZero)
{
    const std::vector<char> narrow{'a', 'b', 'c'};  // on the heap, where a sanitizer sees reads past it
    const std::vector<wchar_t> wide{L'x', L'y', L'z'};
    EXPECT_EQ(logged("%.3s%.3ls", narrow.data(), wide.data()), "abcxyz");
}

TEST(LogFormat, NullTextIsNamedAsSuch)
{
    EXPECT_EQ(logged("%s %ls", static_cast<const char*>(nullptr), static_cast<const wchar_t*>(nullptr)),
              "(null) (null)");
}

TEST(LogFormat, FromAnUnknownDirectiveOnTheFormatStandsAsItIs)
{
    EXPECT_EQ(logged("%d %y %d\n", 1, 2), "1 %y %d\n");
    EXPECT_EQ(logged("%1$s", "a"), "%1$s");
    EXPECT_EQ(logged("%hs %Ld %hlf", "a"), "%hs %Ld %hlf");
}

TEST(LogFormat, ALonePercentSignAtTheEndStaysAsItIs)
{
    EXPECT_EQ(logged("50%"), "50%");
    EXPECT_EQ(logged("50%-5.3l"), "50%-5.3l");
}

TEST(LogFormat, NothingIsEverStoredThroughAPointer)
{
    int written = 99;
    EXPECT_EQ(logged("abc%n", &written), "abc%n");
    EXPECT_EQ(written, 99);
}

TEST(LogFormat, LongTextIsWrittenWhole)
{
    const std::string text(100000, 'x');
    EXPECT_EQ(logged("<%s>", text.c_str()), '<' + text + '>');
    EXPECT_EQ(logged("%5000d", 1).size(), 5000u);
}

TEST(LogFormat, AWidthBeyondReasonIsCutDown)
{
    EXPECT_EQ(logged("%99999999999999s", "x").size(), 1000000u);
    EXPECT_EQ(logged("%*s", INT_MIN, "x").size(), 1000000u);
}

}  // namespace
