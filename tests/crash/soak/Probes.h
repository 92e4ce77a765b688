#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Probes: how long the machine itself takes, so that a slow disk is not taken for a slow library.
//
// Two threads: one reads and writes a small file of each place around the cache of the system, without the
// library; one only sleeps and looks how late it wakes.
//
// Threads:    any.
// Units:      milliseconds, of clockMs.
class Probes
{
public:
    explicit Probes(const std::vector<std::string>& places);
    ~Probes();
    Probes(const Probes&) = delete;
    Probes& operator=(const Probes&) = delete;

    // The longest probe that ran at some moment between the two.
    [[nodiscard]] double worstBetween(double startMs, double endMs);
    [[nodiscard]] double worst();

private:
    struct Span
    {
        double startMs = 0;
        double endMs = 0;  // 0 while it runs
    };

    template <typename Work>
    void probe(std::size_t index, const Work& work);
    bool sleepFor(unsigned ms);
    void askDisks();
    void askScheduler();

    std::vector<int> files_;
    std::mutex guard_;
    std::condition_variable changed_;
    bool stopped_ = false;
    double worstMs_ = 0;
    std::deque<Span> ended_;      // those of the last minute
    std::vector<Span> underWay_;  // one of each thread
    std::vector<std::jthread> threads_;
};

[[nodiscard]] double clockMs();
