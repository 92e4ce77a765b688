#pragma once

#include "os/linux/FileServer.h"

#include <memory>

// What a file on a mount of its own asks its server with.
inline std::shared_ptr<const os::FileServer> testServer(unsigned questionLimitMs = 60'000)
{
    constexpr unsigned threadsMax = 4;
    return std::make_shared<const os::FileServer>(std::make_shared<os::CallLane>(threadsMax),
                                                  std::make_shared<os::CallLane>(threadsMax),
                                                  questionLimitMs);
}
