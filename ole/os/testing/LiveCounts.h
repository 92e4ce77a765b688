#pragma once

#include <atomic>

namespace fake {

// What is alive on the fake platform now; all zero when nothing leaks.
struct Live
{
    unsigned files = 0;     // handles neither closed nor released
    unsigned contexts = 0;  // iAsyncContext
    unsigned events = 0;
    unsigned pages = 0;  // page allocations
    unsigned ports = 0;
    unsigned threads = 0;  // created and not ended
    friend bool operator==(const Live&, const Live&) = default;
};

struct LiveCounts
{
    std::atomic<unsigned> files{0};
    std::atomic<unsigned> contexts{0};
    std::atomic<unsigned> events{0};
    std::atomic<unsigned> pages{0};
    std::atomic<unsigned> ports{0};
    std::atomic<unsigned> threads{0};

    [[nodiscard]] Live now() const { return {files, contexts, events, pages, ports, threads}; }
};

}  // namespace fake
