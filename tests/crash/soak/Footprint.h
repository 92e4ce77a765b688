#pragma once

#include <cstdint>
#include <string>
#include <vector>

class Report;

// Footprint: what the process holds, taken while all workers rest, and whether it grows.
class Footprint
{
public:
    struct Sample
    {
        std::uint64_t residentKb = 0;
        unsigned descriptors = 0;
        unsigned threads = 0;
    };

    // Gives back to the system what the allocator keeps, and looks.
    void take();
    [[nodiscard]] const Sample& last() const { return samples_.back(); }
    // Compares the second half of the samples with the first, after the first of all (the warm-up): memory
    // may be a tenth and 16 MiB more, descriptors and threads no more than they ever were.
    void judge(Report& report, bool withMemory) const;

private:
    std::vector<Sample> samples_;
};
