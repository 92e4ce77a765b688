#pragma once

#include "Qz/LightweightString.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace fake {

// What can be called on the fake platform; also the names by which faults are planned.
enum class Op {
    open,
    close,
    read,
    write,
    getInfo,
    getSize,
    flush,
    setSize,
    getWrittenSize,
    claim,
    asyncRead,   // the start of a transfer
    asyncWrite,  // the start of a transfer
    completion,  // the end of a transfer, about to be reported
    isOpenedDirectly,
    getFileSize,
    fileExists,
    deleteFile,
    renameFile,  // by its old name
    readWholeFile,
    replaceFile,
    directoryExists,
    createDirectory,
    isWritable,
    listDirectory,
    listFilesWithPrefix,
    deleteTree,
    resolvePath,
    hasDirectoryPart,
    getUNCName,
    listShares,
    getMachineName,
    getDriveForPath,
    listDisks,
    reportError,
    registerForRemoval,
    createAsyncContext,
    createEvent,
    setEvent,
    resetEvent,
    waitEvent,
    createThread,
    endThread,
    createPort,
    attach,
    shutDownPort,
    allocatePages,
    releasePages,
    sleep,
};
constexpr std::size_t opCount = static_cast<std::size_t>(Op::sleep) + 1;

[[nodiscard]] const char* nameOf(Op op);

// One call. Fields that the operation does not have stay zero.
struct Call
{
    Op op = Op::open;
    LightweightString<wchar_t> path;  // or the name of a thread, port or event
    unsigned access = 0;              // open only, like the next three
    unsigned creation = 0;
    unsigned share = 0;
    unsigned mode = 0;
    unsigned handle = 0;         // number of the file handle (from 1), event (from 0) or thread (its id)
    std::uint64_t position = 0;  // reads, writes and transfers
    std::size_t count = 0;       // bytes, or milliseconds of waits and sleeps
    unsigned code = 0;           // 0 when it succeeded, the last error when it failed
};

// "open /m/a.mov 1 0 4 0", "read /m/a.mov 0+512", "close /m/a.mov"; " = 10002" follows when it failed.
[[nodiscard]] std::string textOf(const Call& call);

// CallLog: every call on the fake platform, in the order in which the calls ended (opens, closes, port ends,
// event sets ... of all threads in one sequence).
//
// Threads: any.
class CallLog
{
public:
    void add(const Call& call);
    // Forgets what was recorded; counts start again at 0.
    void clear();

    [[nodiscard]] std::vector<Call> calls() const;
    [[nodiscard]] std::vector<Call> calls(Op op) const;
    // textOf() each call of these kinds, in order; of all kinds when none is named.
    [[nodiscard]] std::vector<std::string> lines(const std::vector<Op>& ops = {}) const;
    [[nodiscard]] std::size_t count(Op op) const;
    [[nodiscard]] std::size_t count(Op op, const LightweightString<wchar_t>& path) const;
    // Calls that look at the file system (opens, sizes, existence, listings, ...): 0 where a caller must
    // not touch the disk.
    [[nodiscard]] std::size_t fileSystemCalls() const;

private:
    [[nodiscard]] std::size_t countIf(const std::function<bool(const Call&)>& wanted) const;

    mutable std::mutex mutex_;
    std::vector<Call> calls_;
};

}  // namespace fake
