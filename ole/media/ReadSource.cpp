#include "media/ReadSource.h"

#include "Qz/Utf8.h"
#include "fsys/FsysEntry.h"
#include "fsys/FsysFile.h"
#include "fsys/MaterialLink.h"
#include "media/MediaWriter.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <algorithm>
#include <cerrno>
#include <optional>

namespace {

using Path = ReadSource::Path;

const char* sentenceFor(MediaErrorCode code)
{
    switch (code) {
    case MediaErrorCode::none:
        return "";
    case MediaErrorCode::engineNotRunning:
        return "the I/O engine is not running";
    case MediaErrorCode::notOpen:
        return "the reader is not open";
    case MediaErrorCode::invalidArgument:
        return "a reader needs a path, and one asynchronous read takes at most a gigabyte";
    case MediaErrorCode::unknownClip:
        return "no media of this clip is known";
    case MediaErrorCode::offline:
        return "the media is offline";
    case MediaErrorCode::notFound:
        return "there is no such file";
    case MediaErrorCode::notAFile:
        return "this is a folder, a pipe or a device, not a media file";
    case MediaErrorCode::beyondEnd:
        return "the place to read lies behind the end of the file";
    case MediaErrorCode::fileShrank:
        return "the file has become shorter while it was read";
    case MediaErrorCode::fileVanished:
        return "the file was removed or replaced after it had been opened";
    case MediaErrorCode::cancelled:
        return "the read was cancelled before it was started";
    case MediaErrorCode::givenUp:
        return "the read did not end in time";
    case MediaErrorCode::noMemory:
        return "there is no memory for the read";
    default:
        return "the file cannot be read";
    }
}

Qz::Ptr<iFile> openForLooking(const Path& path)
{
    const Qz::Ptr<iFile> file =
        OS()->getFileManager()->open(path, os::accessRead, os::creationOpen, os::shareAll, os::modePlain);
    return file && file->isOpen() ? file : Qz::Ptr<iFile>();
}

bool isMissing(int errorNumber)
{
    return errorNumber == ENOENT || errorNumber == ENOTDIR || errorNumber == ENAMETOOLONG ||
           errorNumber == ELOOP;
}

// The drive or the server is not there, or is not what it was.
bool isOutOfReach(int errorNumber)
{
    switch (errorNumber) {
    case ENODEV:
    case ENXIO:
    case ESTALE:
    case ETIMEDOUT:
    case ENOTCONN:
    case ECONNABORTED:
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ENETDOWN:
    case ENETUNREACH:
    case ECONNREFUSED:
    case ECONNRESET:
        return true;
    default:
        return false;
    }
}

}  // namespace

MediaError readError(MediaErrorCode code, unsigned platformCode, const Path& about)
{
    MediaError error{code, platformCode, {}};
    if (!about.empty())
        error.text = toUTF8(about).str() + ": ";
    error.text += sentenceFor(code);
    if (platformCode != 0)
        error.text += " (" + errorText(platformCode).str() + ")";
    return error;
}

ReadSource::ReadSource(const Path& path, bool isClip) : path_(path), isClip_(isClip), target_(path) {}

MediaError ReadSource::error(MediaErrorCode code, unsigned platformCode) const
{
    const bool isKnownLink = isLink_ && !target_.empty();
    return readError(code, platformCode, isKnownLink ? path_ + L" (a link to " + target_ + L")" : path_);
}

MediaError ReadSource::open()
{
    if (unsigned bytes = 0; FsysGetWriteBytesOutstanding(&bytes) == 0)
        return error(MediaErrorCode::engineNotRunning);
    if (path_.empty())
        return error(MediaErrorCode::invalidArgument);
    isLink_ = MaterialLink::getLinkedFilename(path_, target_);
    if (target_.empty())
        return isLink_ ? error(MediaErrorCode::offline) : error(MediaErrorCode::readFailed, lastError());
    iFileManager* const files = OS()->getFileManager();
    if (files->directoryExists(target_) || files->isOpenedDirectly(target_))
        return error(MediaErrorCode::notAFile);
    handle_ = openForLooking(target_);
    if (!handle_)
        return openingError(lastError());
    isRecording_ = target_.endsWith(partialEnding);
    if (!handle_->getInfo(&atOpen_))
        return failure(lastError());
    // The size of the path could not be told a moment ago: what is open now is the link, not the media.
    if (isLink_)
        return {};
    const std::optional<bool> isLinkItself = MaterialLink::tellLink(*handle_);
    if (!isLinkItself)
        return failure(lastError());
    return *isLinkItself ? error(MediaErrorCode::offline) : MediaError();
}

MediaError ReadSource::openingError(unsigned platformCode) const
{
    const int number = errnoFromError(platformCode);
    if (isOutOfReach(number) || (isMissing(number) && (isClip_ || isLink_)))
        return error(MediaErrorCode::offline, platformCode);
    if (isMissing(number))
        return error(MediaErrorCode::notFound, platformCode);
    return error(number == ENOMEM ? MediaErrorCode::noMemory : MediaErrorCode::readFailed, platformCode);
}

MediaError ReadSource::failure(unsigned platformCode) const
{
    const bool isOffline = isOutOfReach(errnoFromError(platformCode));
    return error(isOffline ? MediaErrorCode::offline : MediaErrorCode::readFailed, platformCode);
}

MediaError ReadSource::look(FILE_INFO& info) const
{
    if (!handle_->getInfo(&info))
        return failure(lastError());
    // Some file systems count no names at all.
    if (info.links == 0 && atOpen_.links != 0)
        return error(MediaErrorCode::fileVanished);
    // The blocks of a recording reach the disk in any order.
    std::uint64_t written = info.size;
    if (isRecording_ && handle_->getWrittenSize(&written))
        info.size = std::min(info.size, written);
    return {};
}

FsysFile* ReadSource::openWithEngine(unsigned coalesceLength, MediaError& error) const
{
    FsysFile* file = nullptr;
    // The path and not the target: the engine follows one link, and a target of 512 bytes would look like
    // another.
    if (FsysOpen(&file, path_, coalesceLength, fsysOpenRead, nullptr) != 1) {
        unsigned bytes = 0;
        error = FsysGetWriteBytesOutstanding(&bytes) == 0 ? this->error(MediaErrorCode::engineNotRunning)
                                                          : openingError(lastError());
        return nullptr;
    }
    // The two handles were opened one after the other, and a path may change in between.
    error = checkSameFile();
    if (!error)
        return file;
    FsysClose(file, nullptr);
    return nullptr;
}

MediaError ReadSource::checkSameFile() const
{
    Path target;
    MaterialLink::getLinkedFilename(path_, target);
    const Qz::Ptr<iFile> now = target.empty() ? Qz::Ptr<iFile>() : openForLooking(target);
    if (!now) {
        const unsigned code = lastError();
        return isMissing(errnoFromError(code)) ? error(MediaErrorCode::fileVanished) : failure(code);
    }
    FILE_INFO info;
    if (!now->getInfo(&info))
        return failure(lastError());
    return info.inode == atOpen_.inode && info.device == atOpen_.device ? MediaError()
                                                                        : error(MediaErrorCode::fileVanished);
}
