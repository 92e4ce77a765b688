#include "os/SubmissionBatch.h"

#include "Qz/Ptr.h"
#include "os/linux/PortState.h"
#include "os/linux/SubmissionHold.h"

#include <algorithm>
#include <vector>

namespace {

struct Held
{
    unsigned depth = 0;
    std::vector<Qz::Ptr<PortState>> ports;
};

Held& heldByThisThread()
{
    static thread_local Held held;
    return held;
}

}  // namespace

bool SubmissionHold::holdsFor(PortState* port)
{
    Held& held = heldByThisThread();
    if (held.depth == 0)
        return false;
    const auto same = [port](const Qz::Ptr<PortState>& other) { return other.get() == port; };
    if (std::any_of(held.ports.begin(), held.ports.end(), same))
        return true;
    if (!port->hold())
        return false;
    held.ports.emplace_back(port);
    return true;
}

void SubmissionHold::releaseOnThisThread()
{
    std::vector<Qz::Ptr<PortState>>& ports = heldByThisThread().ports;
    while (!ports.empty()) {
        ports.back()->releaseHeld();
        ports.pop_back();
    }
}

namespace os {

SubmissionBatch::SubmissionBatch() { ++heldByThisThread().depth; }

SubmissionBatch::~SubmissionBatch()
{
    if (--heldByThisThread().depth == 0)
        SubmissionHold::releaseOnThisThread();
}

}  // namespace os
