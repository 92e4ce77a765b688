#include "os/linux/BoundedCalls.h"

#include "os/Patience.h"
#include "os/linux/CallLane.h"
#include "os/linux/FileServer.h"

namespace os {

namespace {

constexpr unsigned questionsAtOnce = 4;
constexpr unsigned transfersAtOnce = 16;

}  // namespace

BoundedCalls::BoundedCalls(unsigned limitMs) : limitMs_(limitMs) {}

BoundedCalls::~BoundedCalls() = default;

bool BoundedCalls::run(const std::string& lane, std::function<void(Progress&)> work)
{
    const std::chrono::milliseconds limit(Patience::limitMs(limitMs_.load()));
    return laneOf(lane)->run(std::move(work), {limit, Patience::isSet()});
}

std::shared_ptr<const FileServer> BoundedCalls::serverOf(const std::string& lane, bool cutsAnswers)
{
    // Not in one lane: a long transfer is no reason to call the server dead, and a stuck question none to
    // fail a transfer that may be patient.
    return std::make_shared<const FileServer>(laneOf(lane), laneIn(transferLanes_, lane, transfersAtOnce),
                                              limitMs_.load(), cutsAnswers);
}

std::shared_ptr<CallLane> BoundedCalls::laneOf(const std::string& name)
{
    return laneIn(lanes_, name, questionsAtOnce);
}

std::shared_ptr<CallLane> BoundedCalls::laneIn(std::map<std::string, std::shared_ptr<CallLane>>& lanes,
                                               const std::string& name, unsigned threadsMax)
{
    const std::lock_guard guard(lock_);
    std::shared_ptr<CallLane>& lane = lanes[name];
    if (!lane)
        lane = std::make_shared<CallLane>(threadsMax);
    return lane;
}

}  // namespace os
