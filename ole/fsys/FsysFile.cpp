#include "fsys/FsysFile.h"

#include "fsys/EngineConfig.h"
#include "fsys/FsysFlags.h"
#include "fsys/FsysPoll.h"
#include "fsys/MaterialLink.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/OS.h"

namespace {

constexpr unsigned requestListRoom = 40;

unsigned asyncOpenMode(unsigned flags, iDiskDrive::eType type, bool onNetworkDrive)
{
    constexpr unsigned unbuffered = os::modeAsync | os::modeUnbuffered;
    if (flags & fsysOpenRead)
        return type == iDiskDrive::eNetwork && engineConfig.dontBufferNetReads == 0 ? os::modeAsync
                                                                                    : unbuffered;
    if ((flags & fsysOpenWrite) && onNetworkDrive)
        return engineConfig.disableSetOwner != 0 ? unbuffered : unbuffered | os::modeSetOwner;
    return unbuffered;
}

bool isUsable(const Qz::Ptr<iFile>& handle) { return handle && handle->isOpen(); }

}  // namespace

FsysFile::FsysFile(const LightweightString<wchar_t>& path, FsysPoll* poll, unsigned sectorSize,
                   iDiskDrive::eType type, unsigned flags, unsigned coalesceLength)
    : type_(type),
      sectorSize_(sectorSize),
      kick_(poll ? poll->kickEvent() : Qz::Ptr<iThreadEvent>()),
      path_(path),
      flags_(flags),
      coalesceLength_(coalesceLength)
{
    if (!path.empty())
        init();
}

FsysFile::FsysFile(const Qz::Ptr<iFile>& handle, FsysPoll* poll, unsigned sectorSize, iDiskDrive::eType type,
                   unsigned flags, unsigned coalesceLength)
    : type_(type),
      sectorSize_(sectorSize),
      kick_(poll ? poll->kickEvent() : Qz::Ptr<iThreadEvent>()),
      flags_(flags),
      coalesceLength_(coalesceLength)
{
    init();
    syncHandle_ = handle;
}

FsysFile::~FsysFile()
{
    // A close has emptied the lists; those of a file that the engine left open may hold finished requests.
    if (lock_) {
        destroyRequests(readRequests_);
        destroyRequests(writeRequests_);
    }
    delete lock_;
    delete writeRequests_;
    delete readRequests_;
}

void FsysFile::init()
{
    // Not signalled at first: a signalled event would let a close pass while writes are only queued.
    writesDrained_ = OS()->getThreadServices()->createEvent(0, 0, nullptr);
    readRequests_ = new Vector<FileRequest*>(requestListRoom);
    writeRequests_ = new Vector<FileRequest*>(requestListRoom);
    lock_ = new CriticalSection;
}

void FsysFile::release(FsysFile* file)
{
    if (file->holds_.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete file;
}

bool FsysFile::isForWriting() const { return (flags_ & fsysOpenWrite) != 0; }

unsigned FsysFile::LowLevelOpen(const LightweightString<wchar_t>& path, unsigned flags, bool onNetworkDrive)
{
    iFileManager* const files = OS()->getFileManager();
    const unsigned creation = flags & fsysOpenWrite;
    syncHandle_ = files->open(path, flags, creation, os::shareAll, os::modePlain);
    if (!isUsable(syncHandle_))
        return lastError();
    LightweightString<wchar_t> target = path;
    MaterialLink::getLinkedFilename(path, target);
    asyncHandle_ =
        files->open(target, flags, creation, os::shareAll, asyncOpenMode(flags, type_, onNetworkDrive));
    return isUsable(asyncHandle_) ? 1 : lastError();
}

unsigned FsysFile::LowLevelClose()
{
    syncHandle_.reset();
    asyncHandle_.reset();
    return 1;
}

unsigned FsysFile::LowLevelRead(void* buffer, unsigned bytes)
{
    return syncHandle_ && syncHandle_->read(position_, buffer, bytes, nullptr) ? 1 : 0;
}

unsigned FsysFile::LowLevelWrite(const void* buffer, unsigned bytes)
{
    return syncHandle_ && syncHandle_->write(position_, buffer, bytes, nullptr) ? 1 : lastError();
}

unsigned FsysFile::LowLevelGetInfo(FILE_INFO* info)
{
    if (syncHandle_)
        syncHandle_->getInfo(info);
    return 1;
}

bool FsysFile::SetUpIoCompletionNotify(CompletionPortHandler* port)
{
    return asyncHandle_ && port->attach(asyncHandle_);
}

unsigned FsysFile::Read(void* buffer, unsigned bytes)
{
    const unsigned result = LowLevelRead(buffer, bytes);
    if (result == 1)
        position_ += bytes;
    return result;
}

unsigned FsysFile::Write(const void* buffer, unsigned bytes)
{
    if (const unsigned cached = gathered(); cached != 0) {
        position_ = writeCacheStart_;
        LowLevelWrite(writeCache_->getBuffer(), cached);
        position_ += cached;
        emptyCache();
    }
    const unsigned result = LowLevelWrite(buffer, bytes);
    if (result == 1)
        position_ += bytes;
    return result;
}

unsigned FsysFile::Seek(long offset, SEEK_TYPE type)
{
    if (const unsigned cached = gathered(); cached != 0) {
        // Unlike Write, the flush leaves the position where it was.
        const std::uint64_t before = position_;
        position_ = writeCacheStart_;
        LowLevelWrite(writeCache_->getBuffer(), cached);
        emptyCache();
        position_ = before;
    }
    const auto distance = static_cast<std::uint64_t>(offset);
    position_ = type == eSeekAbsolute ? distance : position_ + distance;
    return 1;
}

unsigned FsysFile::GetSectorSize() const { return sectorSize_; }

unsigned FsysFile::DisableCache()
{
    cacheDisabled_ = true;
    return 1;
}

bool FsysFile::isASyncIOSupported() const
{
    return syncHandle_ && (syncHandle_->getAsyncCapability() & os::capabilityAsync) != 0;
}
