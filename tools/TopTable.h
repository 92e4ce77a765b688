#pragma once

#include "LocationMeter.h"

#include <string>
#include <vector>

// TopTable: locations and their loads as lines of a terminal, whatever its width.
//
// Where the width does not suffice, figures go, the least urgent first; free space goes last.

struct TopLine
{
    enum class Style { plain, head, slow, offline };

    std::string text;  // printable; of exactly the width that was asked for
    Style style = Style::plain;
};

// The heading and one line for each location.
[[nodiscard]] std::vector<TopLine> topTable(const std::vector<LocationLoad>& locations, unsigned width);
// The width at which nothing is left out or cut.
[[nodiscard]] unsigned topTableWidth(const std::vector<LocationLoad>& locations);
