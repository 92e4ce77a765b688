#include "TextWidth.h"

#include "Answer.h"

#include <algorithm>
#include <array>

namespace {

struct Sign
{
    char32_t code = 0;
    std::size_t bytes = 1;
};

// The sign at a place of whole UTF-8.
Sign signAt(const std::string& text, std::size_t at)
{
    const auto byte = [&](std::size_t i) {
        return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0U;
    };
    const unsigned first = byte(0);
    if (first < 0x80)
        return {first, 1};
    const std::size_t bytes = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    char32_t code = first & (0xFFU >> (bytes + 1));
    for (std::size_t i = 1; i < bytes; ++i)
        code = code << 6 | (byte(i) & 0x3FU);
    return {code, bytes};
}

struct CodeRange
{
    char32_t first;
    char32_t last;
};

template <std::size_t N>
bool isWithin(char32_t code, const std::array<CodeRange, N>& ranges)
{
    return std::any_of(ranges.begin(), ranges.end(),
                       [code](const CodeRange& range) { return code >= range.first && code <= range.last; });
}

// Not asked of the C library, which knows widths only after the process has taken a locale.
unsigned columnsOfSign(char32_t code)
{
    static constexpr std::array<CodeRange, 6> none{CodeRange{0x300, 0x36F},   CodeRange{0x200B, 0x200F},
                                                   CodeRange{0x20D0, 0x20FF}, CodeRange{0xFE00, 0xFE0F},
                                                   CodeRange{0xFE20, 0xFE2F}, CodeRange{0xE0100, 0xE01EF}};
    static constexpr std::array<CodeRange, 9> two{
        CodeRange{0x1100, 0x115F}, CodeRange{0x2E80, 0xA4CF},   CodeRange{0xAC00, 0xD7A3},
        CodeRange{0xF900, 0xFAFF}, CodeRange{0xFE30, 0xFE6F},   CodeRange{0xFF00, 0xFF60},
        CodeRange{0xFFE0, 0xFFE6}, CodeRange{0x1F300, 0x1FAFF}, CodeRange{0x20000, 0x3FFFD}};
    return isWithin(code, none) ? 0 : isWithin(code, two) ? 2 : 1;
}

// The longest beginning that takes no more columns.
std::string cut(const std::string& text, unsigned columns)
{
    unsigned used = 0;
    std::size_t at = 0;
    while (at < text.size()) {
        const Sign sign = signAt(text, at);
        used += columnsOfSign(sign.code);
        if (used > columns)
            break;
        at += sign.bytes;
    }
    return text.substr(0, at);
}

std::string cutToFit(const std::string& text, unsigned columns)
{
    if (columnsOf(text) <= columns)
        return text;
    return columns == 0 ? "" : cut(text, columns - 1) + "\u2026";
}

}  // namespace

std::string printable(const std::string& text)
{
    const std::string whole = Json::parse(jsonLine(Json(text))).get<std::string>();
    std::string clean;
    for (std::size_t at = 0; at < whole.size();) {
        const Sign sign = signAt(whole, at);
        const bool isControl = sign.code < 0x20 || (sign.code >= 0x7F && sign.code < 0xA0);
        clean += isControl || sign.code == 0xFFFD ? "?" : whole.substr(at, sign.bytes);
        at += sign.bytes;
    }
    return clean;
}

unsigned columnsOf(const std::string& text)
{
    unsigned columns = 0;
    for (std::size_t at = 0; at < text.size();) {
        const Sign sign = signAt(text, at);
        columns += columnsOfSign(sign.code);
        at += sign.bytes;
    }
    return columns;
}

std::string fitted(const std::string& text, unsigned columns)
{
    const std::string shown = cutToFit(text, columns);
    return shown + std::string(columns - columnsOf(shown), ' ');
}

std::string fittedRight(const std::string& text, unsigned columns)
{
    const std::string shown = cutToFit(text, columns);
    return std::string(columns - columnsOf(shown), ' ') + shown;
}
