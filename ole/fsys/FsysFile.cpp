#include "fsys/FsysFile.h"

#include "Qz/Utf8.h"
#include "fsys/EngineConfig.h"
#include "fsys/FsysFlags.h"
#include "fsys/FsysPoll.h"
#include "fsys/LinkTargets.h"
#include "fsys/MaterialLink.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/OS.h"
#include "support/Log.h"

#include <cerrno>
#include <limits>
#include <optional>

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
    const bool isLink = MaterialLink::getLinkedFilename(path, target);
    if (isLink)
        tellIfOutsideOfLocations(path, target);
    // A platform that could not tell the size a moment ago makes a link look like media: its requests would
    // read and write the link file itself.
    if (!isLink && target == path)
        if (const unsigned result = checkThatIsNoLink(); result != 1)
            return result;
    asyncHandle_ =
        files->open(target, flags, creation, os::shareAll, asyncOpenMode(flags, type_, onNetworkDrive));
    return isUsable(asyncHandle_) ? 1 : lastError();
}

// 1, or why the file must not be opened as media.
unsigned FsysFile::checkThatIsNoLink() const
{
    FILE_INFO info;
    if (!syncHandle_->getInfo(&info))
        return lastError();
    if (info.size != MaterialLink::linkFileSize)
        return 1;
    // The handle may be for writing only.
    const Qz::Ptr<iFile> reader =
        OS()->getFileManager()->open(path_, os::accessRead, os::creationOpen, os::shareAll, os::modePlain);
    if (!isUsable(reader))
        return lastError();
    const std::optional<bool> isLink = MaterialLink::tellLink(*reader);
    if (!isLink)
        return lastError();
    return *isLink ? errorFromErrno(EAGAIN) : 1;
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

bool FsysFile::goToEnd()
{
    constexpr std::uint64_t unknown = std::numeric_limits<std::uint64_t>::max();
    FILE_INFO info;
    info.size = unknown;
    LowLevelGetInfo(&info);
    // Writes from the start would destroy what the file holds.
    if (info.size == unknown)
        return false;
    position_ = info.size;
    return true;
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

void FsysFile::tellLoss(std::uint64_t position, unsigned bytes, unsigned code) const
{
    Log("fsys: %s: %u bytes at %llu were not written (%s)\n", toUTF8(path_).c_str(), bytes,
        static_cast<unsigned long long>(position), errorText(code).c_str());
}

unsigned FsysFile::Write(const void* buffer, unsigned bytes)
{
    if (const unsigned cached = gathered(); cached != 0) {
        writeGathered(cached);
        position_ += cached;
    }
    const unsigned result = LowLevelWrite(buffer, bytes);
    if (result == 1)
        position_ += bytes;
    return result;
}

// Callers were told long ago that these bytes are written, so the log is all that is left to tell.
void FsysFile::writeGathered(unsigned bytes)
{
    position_ = writeCacheStart_;
    if (const unsigned result = LowLevelWrite(writeCache_->getBuffer(), bytes); result != 1)
        tellLoss(position_, bytes, result);
    emptyCache();
}

unsigned FsysFile::Seek(long offset, SEEK_TYPE type)
{
    if (const unsigned cached = gathered(); cached != 0) {
        // Unlike Write, the flush leaves the position where it was.
        const std::uint64_t before = position_;
        writeGathered(cached);
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
