#pragma once

#include "os/testing/FaultPlan.h"
#include "os/testing/ForwardingOS.h"

#include <memory>

// FaultyOS: another platform, mostly the real one, whose calls meet the faults of a plan.
//
//   FaultyOS os(*OS());
//   ScopedOS installed(os);
//   os.faults().failNth(fake::Op::flush, 2, errorFromErrno(EIO));
//
// A call that fails is not carried out, but for the bytes that a read or write has moved before; a transfer
// that fails has been carried out and is reported as failed. A transfer is never dropped: its memory belongs
// to the target until that has reported it, so a drop is a very long delay, on a thread of the port. Speed:
// waits and sleeps of the engine take a fraction of their time when a test asks for that. Ownership:  target
// outlives this object; ports and handles made through it must not.
class FaultyOS : public ForwardingOS
{
public:
    explicit FaultyOS(iOperatingSystem& target, unsigned speed = 1);
    ~FaultyOS() override;

    [[nodiscard]] fake::FaultPlan& faults();
    // Errors that were reported (iFileManager::reportError).
    [[nodiscard]] std::size_t reported() const;
    Qz::Ptr<iCompletionPort> createCompletionPort(const char* name, const IOCompletionCommand& command,
                                                  int minThreads, int maxThreads, int concurrency,
                                                  int priority) override;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};
