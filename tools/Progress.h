#pragma once

#include <chrono>
#include <cstdint>
#include <string>

// Progress: a bar on the terminal for long work, with the time that is left; nothing on a pipe.
class Progress
{
public:
    // What is counted: bytes are shown with their rate.
    enum class Unit { steps, bytes };

    // total in the unit that advance counts; title stands before the bar.
    Progress(std::string title, std::uint64_t total, Unit unit = Unit::steps);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void advance(std::uint64_t done);
    // Takes the bar away, until the next advance, for a line of text.
    void clear();

private:
    void draw();

    std::string title_;
    std::uint64_t total_;
    Unit unit_;
    std::uint64_t done_ = 0;
    bool shown_;
    std::chrono::steady_clock::time_point begun_;
    std::chrono::steady_clock::time_point lastDrawn_;
};
