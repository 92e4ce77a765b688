// Which faults each call is tried with.

#include "Sweep.h"

#include "os/LastError.h"

#include <cerrno>

namespace {

using fake::Effect;
using fake::Fault;
using fake::Op;

constexpr unsigned lateMs = 700;
constexpr unsigned veryLateMs = 9000;  // longer than any wait of a close
constexpr std::size_t somewhere = 100;

Fault failing(Op op, int error, std::size_t bytes = 0)
{
    Fault fault;
    fault.op = op;
    fault.code = errorFromErrno(error);
    fault.bytes = bytes;
    return fault;
}

Fault shortened(Op op, std::size_t bytes, int error = EIO)
{
    Fault fault = failing(op, error, bytes);
    fault.effect = Effect::shorten;
    return fault;
}

Fault late(Op op, unsigned ms = lateMs)
{
    Fault fault;
    fault.op = op;
    fault.effect = Effect::delay;
    fault.delayMs = ms;
    return fault;
}

Fault dropped()
{
    Fault fault;
    fault.op = Op::completion;
    fault.effect = Effect::drop;
    return fault;
}

Fault unusableHandle()
{
    Fault fault = failing(Op::open, EIO);
    fault.closedHandle = true;
    return fault;
}

// What platforms answer when that operation fails.
std::vector<int> errorsOf(Op op)
{
    switch (op) {
    case Op::open:
        // Not ENOENT: that is no failure but the answer that somebody has removed the file.
        return {EACCES, EMFILE, ENOSPC, EROFS, ESTALE};
    case Op::read:
        return {EIO, ESTALE, ETIMEDOUT};
    case Op::write:
    case Op::setSize:
    case Op::replaceFile:
        return {ENOSPC, EIO, EDQUOT, EFBIG, EROFS};
    case Op::flush:
        return {EIO, ENOSPC, EDQUOT};
    case Op::claim:
        return {ENOLCK, EWOULDBLOCK, ENOTSUP};
    case Op::asyncRead:
    case Op::asyncWrite:
        return {EAGAIN, ENOMEM, EBADF};
    case Op::completion:
        return {EIO, ENOSPC, ETIMEDOUT, EDQUOT};
    case Op::deleteFile:
    case Op::deleteTree:
        return {EACCES, EIO, EBUSY, EROFS};
    case Op::renameFile:
        return {EIO, ENOSPC, EEXIST, ENOENT};
    case Op::createDirectory:
        return {ENOSPC, EACCES, EROFS};
    case Op::listDirectory:
    case Op::listFilesWithPrefix:
        return {EIO, ENOENT, ETIMEDOUT};
    case Op::createThread:
        return {EAGAIN};
    case Op::createPort:
        return {EMFILE, ENOMEM};
    case Op::attach:
    case Op::allocatePages:
        return {ENOMEM};
    default:
        return canFail(op) ? std::vector<int>{ETIMEDOUT, EIO, ENOTCONN} : std::vector<int>{};
    }
}

}  // namespace

std::vector<Fault> faultsOf(Op op)
{
    std::vector<Fault> faults;
    for (const int error : errorsOf(op))
        faults.push_back(failing(op, error));
    if (op == Op::open)
        faults.push_back(unusableHandle());
    if (op == Op::read)
        for (const std::size_t bytes : {std::size_t{0}, somewhere})
            faults.push_back(shortened(op, bytes));
    if (op == Op::write)
        faults.push_back(shortened(op, somewhere, ENOSPC));
    if (op == Op::completion) {
        faults.push_back(failing(op, EIO, somewhere));
        faults.push_back(late(op, veryLateMs));
        faults.push_back(dropped());
    }
    if (!faults.empty() && op != Op::createThread)
        faults.push_back(late(op));
    return faults;
}
