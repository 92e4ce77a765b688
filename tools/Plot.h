#pragma once

#include "Command.h"
#include "PlotScript.h"

#include <string>
#include <vector>

// Plot: the picture that --plot asks for, in the file that it names.
//
// Files:      the picture is written whole or not at all; one that was there stays when drawing fails.
// Errors:     told on standard error; the answer is the exit status that the command ends with.
class Plot
{
public:
    // file: empty when no picture is wanted; all operations then do nothing, and answer exitDone.
    explicit Plot(std::string file);

    [[nodiscard]] bool isWanted() const { return !file_.empty(); }
    // Before a long run: whether there will be somebody who draws, and a place for the picture.
    [[nodiscard]] int prepare() const;
    [[nodiscard]] int draw(const std::string& title, std::vector<TimedTransfer> transfers) const;

private:
    [[nodiscard]] bool canWrite() const;

    std::string file_;
    PlotFormat format_;
};

// Adds --plot FILE, which refuses endings of other formats.
void addPlotOption(CLI::App& command, std::string& file);
