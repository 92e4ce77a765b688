#include "Progress.h"

#include <cstdio>
#include <utility>

#include <unistd.h>

namespace {

constexpr unsigned barWidth = 30;
constexpr auto drawInterval = std::chrono::milliseconds(100);

}  // namespace

Progress::Progress(std::string title, std::uint64_t total)
    : title_(std::move(title)), total_(total), shown_(total != 0 && isatty(STDERR_FILENO) == 1)
{}

Progress::~Progress()
{
    if (shown_)
        std::fputs("\r\033[K", stderr);
}

void Progress::advance(std::uint64_t done)
{
    done_ += done;
    const auto time = std::chrono::steady_clock::now();
    if (!shown_ || time - lastDrawn_ < drawInterval)
        return;
    lastDrawn_ = time;
    draw();
}

void Progress::draw()
{
    const std::uint64_t done = done_ < total_ ? done_ : total_;
    const auto filled = static_cast<unsigned>(done * barWidth / total_);
    const std::string bar = std::string(filled, '#') + std::string(barWidth - filled, '.');
    std::fprintf(stderr, "\r%s [%s] %3u%%", title_.c_str(), bar.c_str(),
                 static_cast<unsigned>(done * 100 / total_));
}
