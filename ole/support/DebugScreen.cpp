#include "support/DebugScreen.h"

#include "Qz/Utf8.h"

namespace {

bool isControl(wchar_t character) { return character < 0x20 || (character >= 0x7F && character < 0xA0); }

}  // namespace

DebugScreen::DebugScreen()
{
    for (auto& line : cells_)
        line.fill(L' ');
}

void DebugScreen::put(int column, int row, std::wstring_view text)
{
    if (row < 0 || static_cast<std::size_t>(row) >= rows_)
        return;
    auto& line = cells_[static_cast<std::size_t>(row)];
    long long at = column;
    for (const wchar_t character : text) {
        if (at >= 0 && at < static_cast<long long>(columns_))
            line[static_cast<std::size_t>(at)] = isControl(character) ? L' ' : character;
        ++at;
    }
}

LightweightString<char> DebugScreen::row(int row) const
{
    if (row < 0 || static_cast<std::size_t>(row) >= rows_)
        return {};
    const auto& line = cells_[static_cast<std::size_t>(row)];
    const std::wstring_view whole(line.data(), line.size());
    return toUTF8(whole.substr(0, whole.find_last_not_of(L' ') + 1));
}
