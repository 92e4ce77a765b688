#include "Claims.h"

#include <algorithm>
#include <cstring>
#include <limits>

Claims::Claims(const Work& work, std::uint64_t fileBytes)
    : work_(work),
      // One block less than there is, as room for the shift.
      blocks_(std::max<std::uint64_t>(fileBytes / work.block, work.once ? 1 : 2) - (work.once ? 0 : 1)),
      limit_(work.requests != 0 ? work.requests : std::numeric_limits<std::uint64_t>::max())
{
    if (work.once)
        limit_ = std::min(limit_, blocks_);
}

void Claims::begin()
{
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
