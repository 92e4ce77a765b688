#include "Claims.h"

#include <algorithm>
#include <cstring>
#include <limits>

Claims::Claims(const Work& work, std::uint64_t fileBytes)
    : work_(work),
      // One block less than there is, as room for the shift.
      blocks_(std::max<std::uint64_t>(fileBytes / work.block, work.once ? 1 : 2) - (work.once ? 0 : 1)),
      runLimit_(std::min(work.requests != 0 ? work.requests : std::numeric_limits<std::uint64_t>::max(),
                         work.once ? blocks_ : std::numeric_limits<std::uint64_t>::max()))
{}

void Claims::rehearse()
{
    // The engine keeps finished reads until its list of a file is full and takes new memory until then.
    constexpr std::uint64_t beyondDepth = 64;
    const bool measuresFirstReading = work_.once || work_.mode == Mode::cold;
    limit_ = measuresFirstReading ? 0 : std::uint64_t{2} * work_.depth + beyondDepth;
    first_ = blocks_ - std::min(limit_, blocks_);
    count_ = 0;
}

void Claims::begin()
{
    first_ = 0;
    limit_ = runLimit_;
    count_ = 0;
    over_ = false;
    if (work_.seconds > 0)
        deadline_ = SteadyClock::now() + std::chrono::duration_cast<SteadyClock::duration>(
                                             std::chrono::duration<double>(work_.seconds));
}

void Claims::came(const void* data)
{
    std::uint64_t position = 0;
    std::memcpy(&position, data, sizeof position);
    came_.fetch_add(mixed(position), std::memory_order_relaxed);
}
