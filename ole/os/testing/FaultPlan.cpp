#include "os/testing/FaultPlan.h"

#include "os/LastError.h"
#include "os/testing/StopTest.h"

#include <cerrno>
#include <numeric>

namespace fake {

bool canFail(Op op)
{
    switch (op) {
    case Op::close:
    case Op::hasDirectoryPart:
    case Op::listShares:
    case Op::getMachineName:
    case Op::reportError:
    case Op::registerForRemoval:
    case Op::createAsyncContext:
    case Op::createEvent:
    case Op::setEvent:
    case Op::resetEvent:
    case Op::waitEvent:
    case Op::endThread:
    case Op::shutDownPort:
    case Op::releasePages:
    case Op::sleep:
        return false;
    default:
        return true;
    }
}

const char* nameOf(Effect effect)
{
    switch (effect) {
    case Effect::fail:
        return "fails";
    case Effect::shorten:
        return "is cut short";
    case Effect::delay:
        return "is late";
    case Effect::drop:
        break;
    }
    return "is dropped";
}

void FaultPlan::add(const Fault& fault)
{
    if (!canFail(fault.op))
        stopTest("a fault is planned for an operation that cannot fail");
    const std::lock_guard<std::mutex> guard(mutex_);
    faults_.push_back(fault);
    if (fault.code == 0)
        faults_.back().code = errorFromErrno(fault.op == Op::allocatePages ? ENOMEM : EIO);
}

void FaultPlan::clear()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    faults_.clear();
}

unsigned FaultPlan::fired() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return std::accumulate(fired_.begin(), fired_.end(), 0U);
}

unsigned FaultPlan::fired(Op op) const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return fired_[static_cast<std::size_t>(op)];
}

unsigned FaultPlan::asked(Op op) const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return asked_[static_cast<std::size_t>(op)];
}

void FaultPlan::forgetCalls()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    asked_.fill(0);
}

std::optional<Fault> FaultPlan::check(Op op, const LightweightString<wchar_t>& path)
{
    if (op != Op::completion)
        return meet(op, path, [](Effect) { return true; });
    return meet(op, path, [](Effect effect) { return effect == Effect::fail || effect == Effect::shorten; });
}

std::optional<Fault> FaultPlan::checkAccepted(const LightweightString<wchar_t>& path)
{
    return meet(Op::completion, path,
                [](Effect effect) { return effect == Effect::delay || effect == Effect::drop; });
}

std::optional<Fault> FaultPlan::meet(Op op, const LightweightString<wchar_t>& path, IsMet isMet)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    if (isMet(Effect::fail))
        ++asked_[static_cast<std::size_t>(op)];
    std::optional<Fault> met;
    // Every fault counts every call, so that "the 2nd" means the same whatever else is planned.
    for (Fault& fault : faults_) {
        if (fault.op != op || !isMet(fault.effect) || (!fault.path.empty() && fault.path != path))
            continue;
        if (fault.first > 1) {
            --fault.first;
        } else if (fault.count > 0) {
            if (fault.count != Fault::forEver)
                --fault.count;
            if (!met)
                met = fault;
        }
    }
    if (met)
        ++fired_[static_cast<std::size_t>(op)];
    return met;
}

}  // namespace fake
