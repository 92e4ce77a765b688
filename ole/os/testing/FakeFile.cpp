#include "os/testing/FakeFile.h"

#include "os/Codes.h"
#include "os/LastError.h"
#include "os/testing/FakeCore.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

namespace {

using fake::Op;
using Guard = std::lock_guard<std::mutex>;

constexpr std::uint64_t positionMax = std::numeric_limits<std::int64_t>::max();

fake::Call callOn(const fake::OpenFile& file, Op op)
{
    fake::Call call;
    call.op = op;
    call.path = file.path;
    call.handle = file.handle;
    return call;
}

// 0, or why the range cannot be reached through this handle.
unsigned checkRange(const fake::OpenFile& file, std::uint64_t position)
{
    if (!file.open)
        return errorFromErrno(EBADF);
    return position > positionMax ? errorFromErrno(EINVAL) : 0;
}

unsigned checkWrite(const fake::OpenFile& file, std::uint64_t position, std::size_t count)
{
    if (const unsigned code = checkRange(file, position))
        return code;
    if ((file.access & os::accessWrite) == 0)
        return errorFromErrno(EBADF);
    return count > positionMax - position ? errorFromErrno(EFBIG) : 0;
}

}  // namespace

FakeFile::FakeFile(std::shared_ptr<FakeCore> core, std::shared_ptr<fake::OpenFile> file)
    : core_(std::move(core)), file_(std::move(file))
{
    if (file_->open)
        ++core_->live.files;
}

FakeFile::~FakeFile() { close(); }

void FakeFile::close()
{
    if (!file_->open.exchange(false))
        return;
    --core_->live.files;
    {
        const Guard guard(file_->node->mutex);
        if (file_->node->claimedBy == file_->handle)
            file_->node->claimedBy = 0;
    }
    core_->log.add(callOn(*file_, Op::close));
}

bool FakeFile::read(std::uint64_t position, void* buffer, std::size_t count, std::size_t* done)
{
    std::size_t moved = 0;
    unsigned code = checkRange(*file_, position);
    if (code == 0) {
        const auto fault = core_->fault(Op::read, file_->path);
        {
            const Guard guard(file_->node->mutex);
            moved = file_->node->bytes.read(position, buffer, fault ? std::min(fault->bytes, count) : count);
        }
        // The end of the file is a failure that has no errno.
        const bool fails = fault && fault->effect == fake::Effect::fail;
        code = fails ? fault->code : moved == 0 && count != 0 ? errorFromErrno(0) : 0;
    }
    if (done)
        *done = moved;
    fake::Call call = callOn(*file_, Op::read);
    call.position = position;
    call.count = count;
    call.code = code;
    core_->log.add(call);
    if (code != 0)
        setLastError(code);
    return code == 0;
}

bool FakeFile::write(std::uint64_t position, const void* buffer, std::size_t count, std::size_t* done)
{
    std::size_t moved = 0;
    unsigned code = checkWrite(*file_, position, count);
    if (code == 0) {
        const auto fault = core_->fault(Op::write, file_->path);
        moved = fault ? std::min(fault->bytes, count) : count;
        code = fault ? fault->code : 0;
        const double nowMs = core_->clock.msecsPrecise();
        const Guard guard(file_->node->mutex);
        file_->node->bytes.write(position, buffer, moved);
        file_->node->modifiedNs = static_cast<std::int64_t>(nowMs * 1e6);
    }
    if (done)
        *done = moved;
    fake::Call call = callOn(*file_, Op::write);
    call.position = position;
    call.count = count;
    call.code = code;
    core_->log.add(call);
    if (code != 0)
        setLastError(code);
    return code == 0;
}

bool FakeFile::getInfo(FILE_INFO* info)
{
    fake::Call call = callOn(*file_, Op::getInfo);
    call.code = checkRange(*file_, 0);
    if (call.code == 0)
        if (const auto fault = core_->fault(Op::getInfo, file_->path))
            call.code = fault->code;
    if (call.code == 0) {
        const Guard guard(file_->node->mutex);
        *info = {file_->node->bytes.size(), file_->node->modifiedNs, file_->node->inode, 1,
                 file_->node->links};
    } else {
        setLastError(call.code);
    }
    core_->log.add(call);
    return call.code == 0;
}

std::uint64_t FakeFile::getSize()
{
    fake::Call call = callOn(*file_, Op::getSize);
    call.code = checkRange(*file_, 0);
    if (call.code == 0)
        if (const auto fault = core_->fault(Op::getSize, file_->path))
            call.code = fault->code;
    core_->log.add(call);
    if (call.code != 0) {
        setLastError(call.code);
        return 0;
    }
    const Guard guard(file_->node->mutex);
    return file_->node->bytes.size();
}

bool FakeFile::act(fake::Call call, unsigned access, const std::function<int(fake::Node&)>& action)
{
    call.code = checkRange(*file_, 0);
    if (call.code == 0 && (file_->access & access) != access)
        call.code = errorFromErrno(EINVAL);
    if (call.code == 0) {
        if (const auto fault = core_->fault(call.op, file_->path)) {
            call.code = fault->code;
        } else {
            const Guard guard(file_->node->mutex);
            if (const int error = action(*file_->node))
                call.code = errorFromErrno(error);
        }
    }
    core_->log.add(call);
    if (call.code != 0)
        setLastError(call.code);
    return call.code == 0;
}

bool FakeFile::flush()
{
    return act(callOn(*file_, Op::flush), 0, [](fake::Node&) { return 0; });
}

bool FakeFile::setSize(std::uint64_t bytes)
{
    fake::Call call = callOn(*file_, Op::setSize);
    call.count = bytes;
    return act(call, os::accessWrite, [bytes](fake::Node& node) {
        if (bytes > positionMax)
            return EINVAL;
        node.bytes.resize(bytes);
        return 0;
    });
}

bool FakeFile::getWrittenSize(std::uint64_t* bytes)
{
    return act(callOn(*file_, Op::getWrittenSize), 0, [bytes](fake::Node& node) {
        *bytes = node.bytes.written();
        return 0;
    });
}

bool FakeFile::claim()
{
    return act(callOn(*file_, Op::claim), os::accessWrite, [this](fake::Node& node) {
        if (node.claimedBy != 0 && node.claimedBy != file_->handle)
            return EWOULDBLOCK;
        node.claimedBy = file_->handle;
        return 0;
    });
}

unsigned FakeFile::getAsyncCapability() const
{
    if (!file_->node)
        return 0;
    const Guard guard(file_->node->mutex);
    return file_->node->capability;
}

bool FakeFile::asyncRead(std::uint64_t position, void* buffer, std::size_t count,
                         const Qz::Ptr<iAsyncContext>& context)
{
    return startTransfer(true, position, buffer, nullptr, count, context);
}

bool FakeFile::asyncWrite(std::uint64_t position, const void* buffer, std::size_t count,
                          const Qz::Ptr<iAsyncContext>& context)
{
    return startTransfer(false, position, nullptr, buffer, count, context);
}

bool FakeFile::startTransfer(bool isRead, std::uint64_t position, void* readBuffer, const void* writeBuffer,
                             std::size_t count, const Qz::Ptr<iAsyncContext>& context)
{
    const Op op = isRead ? Op::asyncRead : Op::asyncWrite;
    auto transfer = std::make_shared<fake::Transfer>();
    {
        const Guard guard(file_->portMutex);
        transfer->port = file_->port;
    }
    unsigned code = checkRange(*file_, position);
    if (code == 0 && (file_->mode & os::modeAsync) == 0)
        code = errorFromErrno(EOPNOTSUPP);
    if (code == 0 && !transfer->port)
        code = errorFromErrno(ENOTCONN);
    if (code == 0)
        if (const auto fault = core_->fault(op, file_->path))
            code = fault->code;
    if (code == 0) {
        transfer->file = file_;
        transfer->context = context;
        transfer->readBuffer = readBuffer;
        transfer->writeBuffer = writeBuffer;
        transfer->view = {0,
                          file_->path,
                          file_->handle,
                          isRead,
                          position,
                          count,
                          isRead ? readBuffer : writeBuffer,
                          context ? context->getOwner() : nullptr,
                          {}};
        if (core_->transfers.accept(transfer))
            return true;
        code = errorFromErrno(ESHUTDOWN);
    }
    fake::Call call = callOn(*file_, op);
    call.position = position;
    call.count = count;
    call.code = code;
    core_->log.add(call);
    setLastError(code);
    return false;
}

bool FakeFile::attachTo(const std::shared_ptr<fake::PortState>& port)
{
    if (!file_->open || (file_->mode & os::modeAsync) == 0 ||
        (getAsyncCapability() & os::capabilityAsync) == 0)
        return false;
    const Guard guard(file_->portMutex);
    if (file_->port)
        return false;
    file_->port = port;
    return true;
}
