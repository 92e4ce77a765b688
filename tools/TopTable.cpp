#include "TopTable.h"

#include "Answer.h"
#include "TextWidth.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>

namespace {

constexpr unsigned idWidth = 3;
constexpr unsigned nameWidthMin = 8;
constexpr unsigned gap = 2;
constexpr double minutesOfTwoDays = 2 * 24 * 60;

std::string oneDigit(double value)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f", value);
    return text.data();
}

std::string readRate(const LocationLoad& location)
{
    return location.load ? oneDigit(location.load->readMbPerS) : "-";
}

std::string writeRate(const LocationLoad& location)
{
    return location.load ? oneDigit(location.load->writeMbPerS) : "-";
}

std::string queueDepth(const LocationLoad& location)
{
    return location.load ? oneDigit(location.load->queueDepth) : "-";
}

std::string slowness(const LocationLoad& location)
{
    return !location.load ? "-" : location.load->slow ? "SLOW" : "no";
}

std::string freeSpace(const LocationLoad& location)
{
    return location.freeBytes ? readableBytes(static_cast<double>(*location.freeBytes)) : "-";
}

std::string timeLeft(const LocationLoad& location)
{
    if (!location.minutes || *location.minutes == std::numeric_limits<std::int32_t>::max())
        return "-";
    if (*location.minutes < 0)
        return "full";
    if (*location.minutes > minutesOfTwoDays)
        return std::to_string(*location.minutes / (24 * 60)) + " days";
    return std::to_string(*location.minutes) + " min";
}

struct Column
{
    const char* heading;
    unsigned width;
    unsigned leaves;  // the lowest leaves first
    std::string (*text)(const LocationLoad& location);
};

constexpr std::array<Column, 6> allColumns{
    Column{"READ MB/s", 9, 3, readRate}, Column{"WRITE MB/s", 10, 4, writeRate},
    Column{"QUEUE", 6, 1, queueDepth},   Column{"SLOW", 4, 2, slowness},
    Column{"FREE", 8, 6, freeSpace},     Column{"LEFT", 9, 5, timeLeft},
};

using Shown = std::vector<const Column*>;

unsigned figuresWidth(const Shown& shown)
{
    unsigned width = 0;
    for (const Column* column : shown)
        width += gap + column->width;
    return width;
}

Shown columnsWithin(unsigned width)
{
    Shown shown;
    for (const Column& column : allColumns)
        shown.push_back(&column);
    while (!shown.empty() && idWidth + nameWidthMin + figuresWidth(shown) > width)
        shown.erase(std::min_element(shown.begin(), shown.end(),
                                     [](const Column* a, const Column* b) { return a->leaves < b->leaves; }));
    return shown;
}

std::string figures(const Shown& shown, const LocationLoad& location)
{
    if (!location.online)
        return fittedRight("offline", figuresWidth(shown));
    std::string text;
    for (const Column* column : shown)
        text += std::string(gap, ' ') + fittedRight(column->text(location), column->width);
    return text;
}

TopLine lineOf(const Shown& shown, const LocationLoad& location, unsigned width)
{
    const unsigned nameWidth =
        width > idWidth + figuresWidth(shown) ? width - idWidth - figuresWidth(shown) : 0;
    const std::string line = fitted(location.id.empty() ? "-" : printable(location.id), idWidth) +
                             fitted(printable(location.name), nameWidth) + figures(shown, location);
    const auto style = !location.online                       ? TopLine::Style::offline
                       : location.load && location.load->slow ? TopLine::Style::slow
                                                              : TopLine::Style::plain;
    return {fitted(line, width), style};
}

TopLine headingOf(const Shown& shown, unsigned width)
{
    std::string line = fitted("ID", idWidth);
    line += fitted("NAME", width > idWidth + figuresWidth(shown) ? width - idWidth - figuresWidth(shown) : 0);
    for (const Column* column : shown)
        line += std::string(gap, ' ') + fittedRight(column->heading, column->width);
    return {fitted(line, width), TopLine::Style::head};
}

}  // namespace

std::vector<TopLine> topTable(const std::vector<LocationLoad>& locations, unsigned width)
{
    const Shown shown = columnsWithin(width);
    std::vector<TopLine> lines{headingOf(shown, width)};
    for (const LocationLoad& location : locations)
        lines.push_back(lineOf(shown, location, width));
    return lines;
}

unsigned topTableWidth(const std::vector<LocationLoad>& locations)
{
    unsigned nameWidth = nameWidthMin;
    for (const LocationLoad& location : locations)
        nameWidth = std::max(nameWidth, columnsOf(printable(location.name)));
    return idWidth + nameWidth + figuresWidth(columnsWithin(std::numeric_limits<unsigned>::max()));
}
