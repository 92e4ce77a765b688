#include "Probes.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr double rememberedMs = 60'000;
constexpr unsigned pauseMs = 20;
constexpr std::size_t probeBytes = 65'536;
constexpr std::size_t alignment = 4096;

}  // namespace

double clockMs()
{
    using namespace std::chrono;
    return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
}

Probes::Probes(const std::vector<std::string>& places) : underWay_(2)
{
    for (const std::string& place : places) {
        const std::string path = place + "/probe";
        int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_DIRECT, 0600);
        if (file < 0)
            file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (file >= 0)
            files_.push_back(file);
    }
    threads_.emplace_back([this] { askDisks(); });
    threads_.emplace_back([this] { askScheduler(); });
}

Probes::~Probes()
{
    {
        const std::lock_guard<std::mutex> hold(guard_);
        stopped_ = true;
        changed_.notify_all();
    }
    threads_.clear();
    for (const int file : files_)
        ::close(file);
}

bool Probes::sleepFor(unsigned ms)
{
    std::unique_lock<std::mutex> hold(guard_);
    return !changed_.wait_for(hold, std::chrono::milliseconds(ms), [this] { return stopped_; });
}

template <typename Work>
void Probes::probe(std::size_t index, const Work& work)
{
    {
        const std::lock_guard<std::mutex> hold(guard_);
        underWay_[index] = {clockMs(), 0};
    }
    work();
    const std::lock_guard<std::mutex> hold(guard_);
    Span& span = underWay_[index];
    span.endMs = clockMs();
    worstMs_ = std::max(worstMs_, span.endMs - span.startMs);
    ended_.push_back(span);
    while (ended_.front().endMs < span.endMs - rememberedMs)
        ended_.pop_front();
}

void Probes::askDisks()
{
    void* const buffer = std::aligned_alloc(alignment, probeBytes);
    std::fill_n(static_cast<char*>(buffer), probeBytes, 'p');
    while (sleepFor(pauseMs))
        for (const int file : files_)
            probe(0, [&] {
                // What they answer does not matter, only when.
                if (::pwrite(file, buffer, probeBytes, 0) < 0 || ::pread(file, buffer, probeBytes, 0) < 0)
                    ::fdatasync(file);
            });
    std::free(buffer);
}

void Probes::askScheduler()
{
    bool goesOn = true;
    while (goesOn)
        probe(1, [&] { goesOn = sleepFor(pauseMs); });
}

double Probes::worstBetween(double startMs, double endMs)
{
    const std::lock_guard<std::mutex> hold(guard_);
    double worst = 0;
    for (const Span& span : ended_)
        if (span.endMs >= startMs && span.startMs <= endMs)
            worst = std::max(worst, span.endMs - span.startMs);
    for (const Span& span : underWay_)
        if (span.startMs != 0 && span.endMs == 0)
            worst = std::max(worst, endMs - span.startMs);
    return worst;
}

double Probes::worst()
{
    const std::lock_guard<std::mutex> hold(guard_);
    return worstMs_;
}
