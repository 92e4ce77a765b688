#pragma once

#include "os/BriefLook.h"
#include "os/linux/RingMemory.h"
#include "os/linux/TransferBackend.h"
#include "os/linux/UringRing.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

// UringBackend: transfers through a ring.
//
// Threads:    the submitting thread enters the kernel itself; the collecting thread sleeps in the ring.
// Locks:      mutex_ guards the submission side and is held while the kernel takes requests, which includes
//             copies out of its page cache. Files whose server may stop answering never come here
//             (ServerWorkers). The collecting thread takes it only where it has something to submit, so that
//             it delivers while others are copied.
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
    [[nodiscard]] bool copiesInSubmit() const override { return true; }
    [[nodiscard]] bool hasFinished() override;

private:
    explicit UringBackend(TransferSink& sink);

    // With mutex_ held:
    [[nodiscard]] bool hasRoom() const;
    // True when it, or others before it, had to wait for room: those are nobody's batch, hand them on.
    bool startOrWait(LinuxAsyncContext* transfer, TransferList& failed);
    void start(LinuxAsyncContext* transfer, TransferList& failed);
    void startWaiting(TransferList& failed);
    bool prepare(LinuxAsyncContext* transfer, const Transfer::Step& step);
    void handToKernel(TransferList& failed);

    void reportFailed(TransferList& failed);
    bool takeResult(const UringRing::Result& result, TransferList& finished);

    TransferSink& sink_;
    UringRing ring_;
    std::mutex mutex_;
    RingMemory memory_;
    TransferList waiting_;
    // In the ring. Raised with mutex_ held, lowered without: whoever finds the ring full puts its transfer
    // into waiting_ and tells so before it looks again.
    std::atomic<unsigned> underWay_{0};
    std::atomic<bool> someWait_{false};
    std::vector<std::uint64_t> marks_;        // scratch of handToKernel
    std::vector<UringRing::Result> results_;  // scratch of collect
    TransferList again_;                      // scratch of collect
    os::BriefLook brief_;                     // of the collecting thread
};
