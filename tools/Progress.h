#pragma once

#include <chrono>
#include <cstdint>
#include <string>

// Progress: a bar on the terminal for long work; nothing on a pipe.
class Progress
{
public:
    // total in the unit that advance counts; title stands before the bar.
    Progress(std::string title, std::uint64_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void advance(std::uint64_t done);

private:
    void draw();

    std::string title_;
    std::uint64_t total_;
    std::uint64_t done_ = 0;
    bool shown_;
    std::chrono::steady_clock::time_point lastDrawn_;
};
