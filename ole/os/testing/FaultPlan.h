#pragma once

#include "Qz/LightweightString.h"
#include "os/testing/CallLog.h"

#include <array>
#include <cstddef>
#include <limits>
#include <mutex>
#include <optional>
#include <vector>

namespace fake {

// What becomes of a call that meets a fault.
enum class Effect {
    fail,     // it fails; reads and writes have moved Fault::bytes before
    shorten,  // reads and transfers end well after Fault::bytes, as at the end of the file; writes fail there
    delay,    // it takes Fault::delayMs of the platform's clock longer, and is carried out
    drop,     // completion only: the transfer stays under way until its port ends, or the test ends it
};

// One planned fault.
struct Fault
{
    static constexpr unsigned forEver = std::numeric_limits<unsigned>::max();

    Op op = Op::open;
    unsigned code = 0;                  // last error of the failure, given as it is
    unsigned first = 1;                 // the first call that fails, counted from now: 1 = the next one
    unsigned count = 1;                 // how many calls fail from there on
    LightweightString<wchar_t> path{};  // only calls on this path are counted; empty: all calls
    std::size_t bytes = 0;              // reads, writes: moved before the failure
    bool closedHandle = false;          // open: a handle that is not open instead of none
    Effect effect = Effect::fail;
    unsigned delayMs = 0;
};

// FaultPlan: which calls of the platform do not end as they should, and how many have not so far.
//
// Applies to: what canFail answers true for. An asyncRead or asyncWrite that fails was refused; a completion
//             that fails is a transfer that was accepted and ends with the code. Questions that have no way
//             to fail (getFileSize, fileExists, isWritable, ...) answer what a platform answers that cannot
//             find out: 0, false, nothing. Planning a fault for another operation stops the test: it would
//             never fire.
// Completions: transfers that end by themselves are delayed and dropped in the order of their acceptance,
//             and fail and are shortened in the order of their ends. Held ones are the test's to delay.
// Codes:      as in errorFromErrno(EACCES), or any number, kept as it is; 0 stands for EIO (pages: ENOMEM).
// Threads:    any. A call that is delayed sleeps on its own thread, with the locks of its caller held.
class FaultPlan
{
public:
    void add(const Fault& fault);
    void failNext(Op op, unsigned code, unsigned count = 1) { add({op, code, 1, count}); }
    void failNth(Op op, unsigned n, unsigned code) { add({op, code, n, 1}); }
    void failAlways(Op op, unsigned code) { add({op, code, 1, Fault::forEver}); }
    void failOn(const LightweightString<wchar_t>& path, Op op, unsigned code)
    {
        add({op, code, 1, Fault::forEver, path});
    }
    void clear();

    // Calls that have met a fault.
    [[nodiscard]] unsigned fired() const;
    [[nodiscard]] unsigned fired(Op op) const;

    // Calls that could have met a fault, since the start or the last forgetCalls.
    [[nodiscard]] unsigned asked(Op op) const;
    void forgetCalls();

    // Counts one call; the fault that it meets, if any. For the parts of a platform.
    [[nodiscard]] std::optional<Fault> check(Op op, const LightweightString<wchar_t>& path = {});
    // Counts one transfer that was accepted; only delays and drops of its completion are met.
    [[nodiscard]] std::optional<Fault> checkAccepted(const LightweightString<wchar_t>& path);

private:
    using IsMet = bool (*)(Effect);
    std::optional<Fault> meet(Op op, const LightweightString<wchar_t>& path, IsMet isMet);

    mutable std::mutex mutex_;
    std::vector<Fault> faults_;
    std::array<unsigned, opCount> asked_{};
    std::array<unsigned, opCount> fired_{};
};

[[nodiscard]] bool canFail(Op op);
[[nodiscard]] const char* nameOf(Effect effect);

}  // namespace fake
