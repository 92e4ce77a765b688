#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

// Studio: what the threads of the soak share.

// A finished clip. Its bytes are those of fillPattern for its number.
struct Clip
{
    Cookie cookie;
    std::uint64_t number = 0;
    std::uint64_t bytes = 0;
    LightweightString<wchar_t> path;
};
using ClipPtr = std::shared_ptr<const Clip>;

// The clips that can be read. A clip that somebody holds is not given out for removal.
class Catalog
{
public:
    void add(ClipPtr clip);
    // Any of them; null when there are none.
    [[nodiscard]] ClipPtr pick(std::mt19937_64& random);
    [[nodiscard]] std::vector<ClipPtr> all();
    // Takes the oldest one out that nobody holds when there are more than so many; null when there is none.
    [[nodiscard]] ClipPtr takeOldest(std::size_t keep);

private:
    std::mutex guard_;
    std::vector<ClipPtr> clips_;
};

// Lets all workers rest at a moment at which they hold nothing.
class Rests
{
public:
    explicit Rests(unsigned workers) : workers_(workers) {}

    // Of a worker between two pieces of work. False when it is to end.
    [[nodiscard]] bool mayGoOn();
    // Returns when all workers rest.
    void begin();
    void end();
    void stop();

private:
    const unsigned workers_;
    std::mutex guard_;
    std::condition_variable changed_;
    unsigned resting_ = 0;
    bool wanted_ = false;
    bool stopped_ = false;
};

// What was done, and what was wrong.
class Report
{
public:
    std::atomic<std::uint64_t> reads{0};
    std::atomic<std::uint64_t> bytesRead{0};
    std::atomic<std::uint64_t> callbacks{0};
    std::atomic<std::uint64_t> cancelled{0};
    std::atomic<std::uint64_t> recordings{0};
    std::atomic<std::uint64_t> abandoned{0};
    std::atomic<std::uint64_t> bytesRecorded{0};
    std::atomic<std::uint64_t> removals{0};
    std::atomic<std::uint64_t> scans{0};
    std::atomic<std::uint64_t> locationChanges{0};
    std::atomic<std::uint64_t> messages{0};
    std::atomic<std::uint64_t> late{0};
    std::atomic<std::uint64_t> notYetIndexed{0};  // opened by path, because a scan was under way

    // Something that must not be; printed at once.
    void wrong(const std::string& text);
    void noteLatency(double ms);
    [[nodiscard]] unsigned wrongs() const { return wrongs_; }
    [[nodiscard]] double worstMs() const { return worstMs_; }

private:
    std::atomic<unsigned> wrongs_{0};
    std::atomic<double> worstMs_{0};
};

class Probes;

struct Studio
{
    std::uint64_t seed = 0;
    std::string space;
    std::vector<std::string> places;  // folders, each on a file system of its own
    Catalog catalog;
    Report report;
    Rests rests;
    Probes& probes;
    std::atomic<std::uint64_t> nextNumber{1};
    // How often the index was emptied and filled anew. Meanwhile it is half filled for everybody.
    std::atomic<std::uint64_t> refillsBegun{0};
    std::atomic<std::uint64_t> refillsEnded{0};

    Studio(std::uint64_t theSeed, unsigned workers, Probes& theProbes)
        : seed(theSeed), rests(workers), probes(theProbes)
    {}
};

// The workers; each returns when the rests are over.
void readClips(Studio& studio, unsigned reader);
void recordClips(Studio& studio, unsigned recorder);

// Root of the location at a place, with its separator.
[[nodiscard]] LightweightString<wchar_t> locationAt(const std::string& place);
