#include "os/testing/FaultPlan.h"

#include "os/LastError.h"
#include "os/testing/StopTest.h"

#include <cerrno>
#include <numeric>

namespace fake {
namespace {

bool canFail(Op op)
{
    switch (op) {
    case Op::open:
    case Op::read:
    case Op::write:
    case Op::getInfo:
    case Op::flush:
    case Op::setSize:
    case Op::getWrittenSize:
    case Op::claim:
    case Op::asyncRead:
    case Op::asyncWrite:
    case Op::completion:
    case Op::deleteFile:
    case Op::renameFile:
    case Op::readWholeFile:
    case Op::replaceFile:
    case Op::createDirectory:
    case Op::listDirectory:
    case Op::listFilesWithPrefix:
    case Op::deleteTree:
    case Op::attach:
    case Op::createThread:
    case Op::allocatePages:
        return true;
    default:
        return false;
    }
}

}  // namespace

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

std::optional<Fault> FaultPlan::check(Op op, const LightweightString<wchar_t>& path)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    std::optional<Fault> met;
    // Every fault counts every call, so that "the 2nd" means the same whatever else is planned.
    for (Fault& fault : faults_) {
        if (fault.op != op || (!fault.path.empty() && fault.path != path))
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
