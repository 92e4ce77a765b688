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

// One planned failure.
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
};

// FaultPlan: which calls of the fake platform fail, and how many have failed so far.
//
// Applies to: open, read, write, getInfo, flush, setSize, getWrittenSize, claim, asyncRead, asyncWrite (the
//             start is refused), completion (an accepted transfer ends with the code), deleteFile,
//             renameFile, readWholeFile, replaceFile, createDirectory, listDirectory, listFilesWithPrefix,
//             deleteTree, attach, createThread, allocatePages. Planning a fault for another operation stops
//             the test: it would never fire.
// Codes:      as in errorFromErrno(EACCES), or any number, kept as it is; 0 stands for EIO (pages: ENOMEM).
// Threads:    any.
class FaultPlan
{
public:
    void add(const Fault& fault);
    void failNext(Op op, unsigned code, unsigned count = 1) { add({op, code, 1, count, {}, 0, false}); }
    void failNth(Op op, unsigned n, unsigned code) { add({op, code, n, 1, {}, 0, false}); }
    void failAlways(Op op, unsigned code) { add({op, code, 1, Fault::forEver, {}, 0, false}); }
    void failOn(const LightweightString<wchar_t>& path, Op op, unsigned code)
    {
        add({op, code, 1, Fault::forEver, path, 0, false});
    }
    void clear();

    // Failures that have happened.
    [[nodiscard]] unsigned fired() const;
    [[nodiscard]] unsigned fired(Op op) const;

    // Counts one call; the fault that it meets, if any. For the parts of the fake platform.
    [[nodiscard]] std::optional<Fault> check(Op op, const LightweightString<wchar_t>& path = {});

private:
    mutable std::mutex mutex_;
    std::vector<Fault> faults_;
    std::array<unsigned, opCount> fired_{};
};

}  // namespace fake
