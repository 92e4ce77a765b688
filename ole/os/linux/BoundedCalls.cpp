#include "os/linux/BoundedCalls.h"

#include "os/linux/CallLane.h"

namespace os {

BoundedCalls::BoundedCalls(unsigned limitMs) : limitMs_(limitMs) {}

BoundedCalls::~BoundedCalls() = default;

bool BoundedCalls::run(const std::string& lane, std::function<void(Progress&)> work)
{
    return laneOf(lane)->run(std::move(work), std::chrono::milliseconds(limitMs_.load()));
}

std::shared_ptr<CallLane> BoundedCalls::laneOf(const std::string& name)
{
    const std::lock_guard guard(lock_);
    std::shared_ptr<CallLane>& lane = lanes_[name];
    if (!lane)
        lane = std::make_shared<CallLane>();
    return lane;
}

}  // namespace os
