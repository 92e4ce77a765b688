#pragma once

#include "TimedTransfer.h"

#include <string>
#include <vector>

// PlotScript: what gnuplot is told, from the first line to the last, for the picture of a run.
//
// Three panels share one file: latency over time with the deadline line, how often which latency came, and
// throughput over time. Text in it is data: no name can become a command.

enum class PlotFormat { svg, png };

// Opens the picture; alone it draws nothing and tells whether gnuplot knows the format.
[[nodiscard]] std::string plotBeginning(PlotFormat format);
// The whole script. Runs of more transfers than can be told apart are drawn by the fastest and the slowest of
// each moment, and the picture says so.
[[nodiscard]] std::string plotScript(PlotFormat format, const std::string& title,
                                     std::vector<TimedTransfer> transfers);
