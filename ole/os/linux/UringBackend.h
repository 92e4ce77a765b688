#pragma once

#include "os/linux/TransferBackend.h"
#include "os/linux/UringRing.h"

#include <memory>
#include <mutex>
#include <vector>

// UringBackend: transfers through a ring.
//
// Threads:    the submitting thread enters the kernel itself; the collecting thread sleeps in the ring.
// Locks:      mutex_ guards the submission side and is held while the kernel takes requests, never while
//             it carries them out on a stopped server (such files go to the ring's own workers).
// Bounds:     never more requests under way than results fit into the ring; the rest waits in a list.
class UringBackend final : public TransferBackend
{
public:
    // Empty, with errno in *error, when no ring can be built.
    [[nodiscard]] static std::unique_ptr<UringBackend> create(TransferSink& sink, int* error);

    void submit(LinuxAsyncContext* transfer, bool more) override;
    void flush() override;
    void collect(TransferList& finished) override;
    void interrupt() override;
    [[nodiscard]] bool hasFinished() override;

private:
    explicit UringBackend(TransferSink& sink) : sink_(sink) {}

    // With mutex_ held:
    void start(LinuxAsyncContext* transfer, TransferList& failed);
    void startWaiting(TransferList& failed);
    void handToKernel(TransferList& failed);

    void reportFailed(TransferList& failed);
    bool takeResult(const UringRing::Result& result, TransferList& finished);

    TransferSink& sink_;
    UringRing ring_;
    std::mutex mutex_;
    TransferList waiting_;
    unsigned underWay_ = 0;                   // in the ring
    std::vector<std::uint64_t> marks_;        // scratch of handToKernel
    std::vector<UringRing::Result> results_;  // scratch of collect
    TransferList again_;                      // scratch of collect
};
