#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "Qz/LightweightString.h"

// DebugScreen: the debug text screen, one character per cell.
//
// Threads:    none of its own.
class DebugScreen
{
public:
    DebugScreen();
    // Cells outside of the screen are passed over.
    void put(int column, int row, std::wstring_view text);
    [[nodiscard]] LightweightString<char> row(int row) const;

private:
    static constexpr std::size_t columns_ = 128;
    static constexpr std::size_t rows_ = 64;

    std::array<std::array<wchar_t, columns_>, rows_> cells_;
};
