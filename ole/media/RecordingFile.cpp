#include "media/RecordingFile.h"

#include "Qz/Utf8.h"
#include "fsys/FsysEntry.h"
#include "media/MediaWriter.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <cerrno>
#include <new>
#include <utility>

namespace {

constexpr unsigned claimTries = 20;
constexpr unsigned claimPauseMs = 10;

const char* sentenceOf(MediaErrorCode code)
{
    switch (code) {
    case MediaErrorCode::engineNotRunning:
        return "the I/O engine does not run";
    case MediaErrorCode::notOpen:
        return "the recording has ended";
    case MediaErrorCode::invalidArgument:
        return "this cannot be recorded or finished";
    case MediaErrorCode::notFound:
        return "there is no such file or folder";
    case MediaErrorCode::notAFile:
        return "this is a folder";
    case MediaErrorCode::alreadyExists:
        return "there is a file of this name already";
    case MediaErrorCode::unfinished:
        return "an unfinished recording stands here";
    case MediaErrorCode::fileVanished:
        return "the unfinished file was removed";
    case MediaErrorCode::givenUp:
        return "the disk has taken nothing for too long";
    case MediaErrorCode::noMemory:
        return "no memory for another block";
    case MediaErrorCode::diskFull:
        return "the disk is full";
    case MediaErrorCode::flushFailed:
        return "the recording could not be flushed to the device";
    case MediaErrorCode::renameFailed:
        return "the recording could not be given its name";
    default:
        return "the recording could not be written";
    }
}

MediaErrorCode whyNotMade(unsigned platformCode)
{
    switch (errnoFromError(platformCode)) {
    case EEXIST:
        return MediaErrorCode::unfinished;
    case ENOENT:
    case ENOTDIR:
        return MediaErrorCode::notFound;
    default:
        return diskFullOr(MediaErrorCode::writeFailed, platformCode);
    }
}

bool isEngineRunning()
{
    unsigned outstanding = 0;
    return FsysGetWriteBytesOutstanding(&outstanding) == 1;
}

}  // namespace

MediaError recordingError(MediaErrorCode code, unsigned platformCode, const LightweightString<wchar_t>& path)
{
    std::string text = toUTF8(path).str() + ": " + sentenceOf(code);
    if (platformCode != 0)
        text += " (" + errorText(platformCode).str() + ")";
    return {code, platformCode, std::move(text)};
}

MediaErrorCode diskFullOr(MediaErrorCode other, unsigned platformCode)
{
    const int error = errnoFromError(platformCode);
    return error == ENOSPC || error == EDQUOT || error == EFBIG ? MediaErrorCode::diskFull : other;
}

bool claimPatiently(iFile& file)
{
    for (unsigned tries = claimTries; !file.claim(); --tries) {
        if (tries == 1 || errnoFromError(lastError()) != EWOULDBLOCK)
            return false;
        OS()->getClock()->sleep(claimPauseMs);
    }
    return true;
}

Qz::Ptr<iFile> openRecording(const LightweightString<wchar_t>& path)
{
    const Qz::Ptr<iFile> file = OS()->getFileManager()->open(path, os::accessReadWrite, os::creationOpen,
                                                             os::shareAll, os::modePlain);
    return file && file->isOpen() ? file : Qz::Ptr<iFile>();
}

unsigned whyNotNamed(iFile& file, const LightweightString<wchar_t>& path)
{
    const unsigned gone = errorFromErrno(ENOENT);
    FILE_INFO ours;
    if (!file.getInfo(&ours))
        return lastError();
    if (ours.links == 0)
        return gone;
    const Qz::Ptr<iFile> now = openRecording(path);
    // Who has no descriptors left cannot look. The file has a name, and hardly anybody gave it a new one.
    if (!now)
        return errnoFromError(lastError()) == ENOENT ? gone : 0;
    FILE_INFO theirs;
    if (!now->getInfo(&theirs))
        return lastError();
    return ours.inode == theirs.inode && ours.device == theirs.device ? 0 : gone;
}

MediaError renameRecording(iFile& file, const LightweightString<wchar_t>& from,
                           const LightweightString<wchar_t>& to, bool* named)
{
    *named = OS()->getFileManager()->renameFile(from, to);
    if (*named)
        return {};
    const unsigned code = lastError();
    if (errnoFromError(code) == EEXIST)
        return recordingError(MediaErrorCode::alreadyExists, code, to);
    // The renaming may have been done and only its way to the device have failed.
    *named = whyNotNamed(file, from) != 0 && whyNotNamed(file, to) == 0;
    return recordingError(MediaErrorCode::renameFailed, code, to);
}

RecordingFile::RecordingFile(const Path& path) : path_(path), partialPath_(path + partialEnding) {}

RecordingFile::~RecordingFile() { closeEngine(); }

MediaError RecordingFile::checkNames() const
{
    iFileManager* const files = OS()->getFileManager();
    if (path_.empty())
        return recordingError(MediaErrorCode::invalidArgument, 0, path_);
    if (!isEngineRunning())
        return recordingError(MediaErrorCode::engineNotRunning, 0, path_);
    if (files->directoryExists(path_))
        return recordingError(MediaErrorCode::notAFile, 0, path_);
    if (files->fileExists(path_))
        return recordingError(MediaErrorCode::alreadyExists, 0, path_);
    return {};
}

MediaError RecordingFile::begin()
{
    if (MediaError error = checkNames())
        return error;
    handle_ = OS()->getFileManager()->open(partialPath_, os::accessReadWrite, os::creationNew, os::shareAll,
                                           os::modePlain);
    if (!handle_ || !handle_->isOpen()) {
        const unsigned code = lastError();
        handle_.reset();
        return recordingError(whyNotMade(code), code, partialPath_);
    }
    return claimAndOpen();
}

MediaError RecordingFile::claimAndOpen()
{
    // Where the file system knows no claims every claim fails, so nobody takes the file for one that was
    // left behind either.
    if (!claimPatiently(*handle_) && errnoFromError(lastError()) == EWOULDBLOCK) {
        handle_.reset();  // somebody has it already and decides what becomes of it
        return recordingError(MediaErrorCode::unfinished, errorFromErrno(EWOULDBLOCK), partialPath_);
    }
    FILE_INFO info;
    if (!handle_->getInfo(&info))
        return undo(lastError());
    if (info.links == 0) {
        handle_.reset();  // removed before it was claimed
        return recordingError(MediaErrorCode::writeFailed, errorFromErrno(ENOENT), partialPath_);
    }
    if (FsysOpen(&file_, partialPath_, 0, fsysOpenWrite, nullptr) == 1)
        return {};
    file_ = nullptr;
    return undo(lastError());
}

MediaError RecordingFile::undo(unsigned platformCode)
{
    remove();
    handle_.reset();
    return recordingError(diskFullOr(MediaErrorCode::writeFailed, platformCode), platformCode, partialPath_);
}

void RecordingFile::write(const Qz::Ptr<WriteBlock>& block)
{
    try {
        writeOrOffer(block);
    } catch (const std::bad_alloc&) {
        block->setFailed(errorFromErrno(ENOMEM));
    }
}

void RecordingFile::writeOrOffer(const Qz::Ptr<WriteBlock>& block)
{
    if (!engineRefuses_ && offer(block))
        return;
    // Where writes are gathered (a network drive with write caching on) the engine refuses whole blocks, and
    // logs each one; it is not asked again.
    engineRefuses_ = true;
    const unsigned result = writeNow(block->position(), block->getBuffer(), block->getUsed());
    if (result == 1)
        block->setWritten();
    else
        block->setFailed(result);
}

bool RecordingFile::offer(const Qz::Ptr<WriteBlock>& block)
{
    block->setUnderWay();
    file_->Seek(static_cast<long>(block->position()), eSeekAbsolute);
    Qz::Ptr<iMemHolder> data = block;
    Qz::Ptr<iObject> context = block;
    return file_->DirectWrite(data, false, &WriteBlock::completed, context, false) == 1;
}

unsigned RecordingFile::writeNow(std::uint64_t position, const unsigned char* bytes, std::size_t size)
{
    file_->Seek(static_cast<long>(position), eSeekAbsolute);
    return file_->Write(bytes, static_cast<unsigned>(size));
}

void RecordingFile::closeEngine()
{
    if (file_)
        FsysClose(std::exchange(file_, nullptr), nullptr);
}

MediaError RecordingFile::giveName(bool* named)
{
    *named = false;
    if (const unsigned code = whyNotNamed(*handle_, partialPath_))
        return errnoFromError(code) == ENOENT ? recordingError(MediaErrorCode::fileVanished, 0, partialPath_)
                                              : recordingError(MediaErrorCode::renameFailed, code, path_);
    return renameRecording(*handle_, partialPath_, path_, named);
}

bool RecordingFile::remove()
{
    const unsigned code = whyNotNamed(*handle_, partialPath_);
    if (code != 0)
        return errnoFromError(code) == ENOENT;
    return OS()->getFileManager()->deleteFile(partialPath_);
}

bool RecordingFile::isGone() { return errnoFromError(whyNotNamed(*handle_, partialPath_)) == ENOENT; }
