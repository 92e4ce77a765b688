#pragma once

#include "MountList.h"

#include <cstdint>
#include <optional>

// Transferred: what the kernel has counted of a mounted volume's device, for all programs of this machine.
struct Transferred
{
    std::uint64_t readBytes = 0;  // since the device came
    std::uint64_t writtenBytes = 0;
};

// None for volumes without a block device of this machine: servers, memory, folders over folders.
[[nodiscard]] std::optional<Transferred> transferredOn(const Mount& mount);
