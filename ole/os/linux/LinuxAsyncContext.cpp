#include "os/linux/LinuxAsyncContext.h"

#include <utility>

bool LinuxAsyncContext::begin(const Qz::Ptr<SharedDescriptor>& descriptor, const Transfer& transfer)
{
    if (underWay_.exchange(true, std::memory_order_acq_rel))
        return false;
    transfer_ = transfer;
    descriptor_ = descriptor;
    self_ = this;
    return true;
}

void LinuxAsyncContext::abandon()
{
    Transfer unused;
    static_cast<void>(finish(unused));
}

Qz::Ptr<LinuxAsyncContext> LinuxAsyncContext::finish(Transfer& outcome)
{
    outcome = transfer_;
    descriptor_.reset();
    Qz::Ptr<LinuxAsyncContext> self = std::move(self_);
    underWay_.store(false, std::memory_order_release);
    return self;
}

Qz::Ptr<iAsyncContext> createLinuxAsyncContext(void* owner)
{
    return Qz::Ptr<iAsyncContext>(new LinuxAsyncContext(owner));
}
