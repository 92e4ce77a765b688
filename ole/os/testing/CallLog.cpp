#include "os/testing/CallLog.h"

#include "Qz/Utf8.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace fake {
namespace {

constexpr std::array<const char*, opCount> names = {
    "open",
    "close",
    "read",
    "write",
    "getInfo",
    "getSize",
    "flush",
    "setSize",
    "getWrittenSize",
    "claim",
    "asyncRead",
    "asyncWrite",
    "completion",
    "isOpenedDirectly",
    "getFileSize",
    "fileExists",
    "deleteFile",
    "renameFile",
    "readWholeFile",
    "replaceFile",
    "directoryExists",
    "createDirectory",
    "isWritable",
    "listDirectory",
    "listFilesWithPrefix",
    "deleteTree",
    "resolvePath",
    "hasDirectoryPart",
    "getUNCName",
    "listShares",
    "getMachineName",
    "getDriveForPath",
    "listDisks",
    "reportError",
    "registerForRemoval",
    "createAsyncContext",
    "createEvent",
    "setEvent",
    "resetEvent",
    "waitEvent",
    "createThread",
    "endThread",
    "createPort",
    "attach",
    "shutDownPort",
    "allocatePages",
    "releasePages",
    "sleep",
};

// Which of a call's numbers say something.
bool hasRange(Op op)
{
    return op == Op::read || op == Op::write || op == Op::asyncRead || op == Op::asyncWrite ||
           op == Op::completion;
}
bool hasCount(Op op)
{
    return op == Op::setSize || op == Op::allocatePages || op == Op::releasePages || op == Op::sleep ||
           op == Op::waitEvent;
}
bool hasNumber(Op op)
{
    return op == Op::createEvent || op == Op::setEvent || op == Op::resetEvent || op == Op::waitEvent ||
           op == Op::endThread;
}
bool touchesFileSystem(Op op)
{
    switch (op) {
    case Op::open:
    case Op::read:
    case Op::write:
    case Op::getInfo:
    case Op::getSize:
    case Op::flush:
    case Op::setSize:
    case Op::getWrittenSize:
    case Op::claim:
    case Op::isOpenedDirectly:
    case Op::getFileSize:
    case Op::fileExists:
    case Op::deleteFile:
    case Op::renameFile:
    case Op::readWholeFile:
    case Op::replaceFile:
    case Op::directoryExists:
    case Op::createDirectory:
    case Op::isWritable:
    case Op::listDirectory:
    case Op::listFilesWithPrefix:
    case Op::deleteTree:
    case Op::resolvePath:
    case Op::getUNCName:
    case Op::getDriveForPath:
        return true;
    default:
        return false;
    }
}

}  // namespace

const char* nameOf(Op op) { return names[static_cast<std::size_t>(op)]; }

std::string textOf(const Call& call)
{
    std::ostringstream text;
    text << nameOf(call.op);
    if (!call.path.empty())
        text << ' ' << toUTF8(call.path).c_str();
    if (call.op == Op::open)
        text << ' ' << call.access << ' ' << call.creation << ' ' << call.share << ' ' << call.mode;
    if (hasNumber(call.op))
        text << ' ' << call.handle;
    if (hasRange(call.op))
        text << ' ' << call.position << '+' << call.count;
    else if (hasCount(call.op))
        text << ' ' << call.count;
    if (call.code != 0)
        text << " = " << std::hex << call.code;
    return text.str();
}

void CallLog::add(const Call& call)
{
    const std::lock_guard<std::mutex> guard(mutex_);
    calls_.push_back(call);
}

void CallLog::clear()
{
    const std::lock_guard<std::mutex> guard(mutex_);
    calls_.clear();
}

std::vector<Call> CallLog::calls() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return calls_;
}

std::vector<Call> CallLog::calls(Op op) const
{
    std::vector<Call> wanted = calls();
    std::erase_if(wanted, [op](const Call& call) { return call.op != op; });
    return wanted;
}

std::vector<std::string> CallLog::lines(const std::vector<Op>& ops) const
{
    std::vector<std::string> result;
    for (const Call& call : calls())
        if (ops.empty() || std::find(ops.begin(), ops.end(), call.op) != ops.end())
            result.push_back(textOf(call));
    return result;
}

std::size_t CallLog::countIf(const std::function<bool(const Call&)>& wanted) const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return static_cast<std::size_t>(std::count_if(calls_.begin(), calls_.end(), wanted));
}

std::size_t CallLog::count(Op op) const
{
    return countIf([op](const Call& call) { return call.op == op; });
}

std::size_t CallLog::count(Op op, const LightweightString<wchar_t>& path) const
{
    return countIf([&](const Call& call) { return call.op == op && call.path == path; });
}

std::size_t CallLog::fileSystemCalls() const
{
    return countIf([](const Call& call) { return touchesFileSystem(call.op); });
}

}  // namespace fake
