#pragma once

#include <string>

// Gnuplot: the program that draws, run on one script.
//
// Processes:  started without a shell and without the user's own settings; found on PATH.
// Errors:     a text for people; empty when all went well.
struct GnuplotRun
{
    std::string output;  // what it wrote to standard output: the picture
    std::string error;
};

[[nodiscard]] GnuplotRun runGnuplot(const std::string& script);
