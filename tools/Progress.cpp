#include "Progress.h"

#include "Answer.h"

#include <array>
#include <cstdio>
#include <utility>

#include <unistd.h>

namespace {

constexpr unsigned barWidth = 30;
constexpr auto drawInterval = std::chrono::milliseconds(100);
constexpr double longestTold = 100 * 3600;  // seconds; nobody believes more

// "  0:42 left"; empty when nothing can be said yet.
std::string timeLeft(double seconds)
{
    if (seconds <= 0 || seconds > longestTold)
        return {};
    std::array<char, 48> text{};
    const auto whole = static_cast<unsigned>(seconds);
    if (whole >= 3600)
        std::snprintf(text.data(), text.size(), "  %u:%02u:%02u left", whole / 3600, whole / 60 % 60,
                      whole % 60);
    else
        std::snprintf(text.data(), text.size(), "  %u:%02u left", whole / 60, whole % 60);
    return text.data();
}

}  // namespace

Progress::Progress(std::string title, std::uint64_t total, Unit unit)
    : title_(std::move(title)),
      total_(total),
      unit_(unit),
      shown_(total != 0 && isatty(STDERR_FILENO) == 1),
      begun_(std::chrono::steady_clock::now())
{}

Progress::~Progress() { clear(); }

void Progress::clear()
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
    const double seconds = std::chrono::duration<double>(lastDrawn_ - begun_).count();
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    const std::string speed = unit_ == Unit::bytes ? "  " + readableBytes(rate) + "/s" : "";
    std::fprintf(stderr, "\r%s [%s] %3u%%%s%s\033[K", title_.c_str(), bar.c_str(),
                 static_cast<unsigned>(done * 100 / total_), speed.c_str(),
                 timeLeft(rate > 0 ? static_cast<double>(total_ - done) / rate : 0).c_str());
}
