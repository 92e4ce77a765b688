#pragma once

#include "os/linux/Transfer.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct io_uring;

// UringRing: one submission and completion ring of the kernel.
//
// Requests carry a 64-bit mark that comes back with their result; 0 is for wake-ups.
// Threads:    prepare, setSlot, submit and takeBack under one lock of the caller's; wait and hasResults
//             beside them, on one thread at a time.
// Errors:     errno values, 0 for success.
class UringRing
{
public:
    struct Result
    {
        std::uint64_t mark;
        std::int64_t result;  // bytes or negated errno
    };

    UringRing();
    ~UringRing();
    UringRing(const UringRing&) = delete;
    UringRing& operator=(const UringRing&) = delete;

    // Builds the ring. What fails here fails for good: no kernel support, a sandbox, too many open files.
    [[nodiscard]] int build(unsigned submissionEntries, unsigned completionEntries);
    // Sends an empty request round, because some sandboxes let rings be built and not used.
    // REQUIRES: built, nothing else under way.
    [[nodiscard]] int sendTrial();

    // Requests that may be under way without results being lost.
    [[nodiscard]] unsigned completionEntries() const;

    // Memory that the kernel keeps mapped for this ring, by slot. Makes a table of empty slots; what fails
    // here (old kernels, limits) leaves a ring without slots that does all else.
    [[nodiscard]] int makeSlots(unsigned count);
    // Fills a slot, or empties it when memory is null. The pages are pinned from then on: the memory must
    // not be given back to the system before its slot is emptied.
    [[nodiscard]] int setSlot(unsigned slot, void* memory, std::size_t bytes);
    static constexpr unsigned noSlot = ~0U;

    // Puts a request into the ring. slot: one that holds all of the step's memory, or noSlot. False when
    // the ring is full: submit first.
    [[nodiscard]] bool prepare(TransferKind kind, const Transfer::Step& step, unsigned slot,
                               std::uint64_t mark);
    [[nodiscard]] bool prepareWakeUp();

    // Hands what is prepared to the kernel. After an error the rest stays prepared.
    [[nodiscard]] int submit();
    // Removes what is prepared and not handed over; appends the marks.
    void takeBack(std::vector<std::uint64_t>& marks);

    // Waits for at least one result and appends those that are there, up to limit.
    void wait(std::vector<Result>& results, unsigned limit);
    [[nodiscard]] bool hasResults() const;

private:
    std::unique_ptr<io_uring> ring_;
    bool built_ = false;
};
