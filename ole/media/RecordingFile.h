#pragma once

#include "Qz/LightweightString.h"
#include "Qz/Ptr.h"
#include "media/MediaError.h"
#include "media/WriteBlock.h"
#include "os/iFile.h"

#include <cstddef>
#include <cstdint>

class FsysFile;

// What went wrong with a recording, as its users are told: "PATH: SENTENCE (what the platform says)".
[[nodiscard]] MediaError recordingError(MediaErrorCode code, unsigned platformCode,
                                        const LightweightString<wchar_t>& path);
// diskFull for platform codes that mean it, otherwise the other one.
[[nodiscard]] MediaErrorCode diskFullOr(MediaErrorCode other, unsigned platformCode);
// Claims a file (iFile::claim). One that merely looks at unfinished recordings has the claim for a moment,
// so this asks for a fifth of a second.
[[nodiscard]] bool claimPatiently(iFile& file);
// A handle to claim, cut and flush a recording with; null when it cannot be opened.
[[nodiscard]] Qz::Ptr<iFile> openRecording(const LightweightString<wchar_t>& path);
// 0 when path still names the file: since it was opened, it may have been given another name or been
// removed, and another recorder have begun under the old one. Otherwise why not, ENOENT's code for such a
// file, another code when nobody can tell.
[[nodiscard]] unsigned whyNotNamed(iFile& file, const LightweightString<wchar_t>& path);
// Gives a recording another name. *named: it has it, also when that may not survive a loss of power.
[[nodiscard]] MediaError renameRecording(iFile& file, const LightweightString<wchar_t>& from,
                                         const LightweightString<wchar_t>& to, bool* named);

// RecordingFile: a recording under its unfinished name.
//
// The file is open twice. Blocks and the rest go through the engine; a handle of our own holds the claim that
// keeps others from taking the file for one that was left behind, and does what the engine cannot: flush,
// cut, and write what the engine failed to write.
//
// Threads:    one at a time.
// Positions:  bytes from the start of the file.
class RecordingFile
{
public:
    using Path = LightweightString<wchar_t>;

    explicit RecordingFile(const Path& path);
    ~RecordingFile();
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    [[nodiscard]] const Path& path() const { return path_; }
    [[nodiscard]] const Path& partialPath() const { return partialPath_; }

    // Makes the file. After an error there is none, or the one that was there before.
    [[nodiscard]] MediaError begin();

    // --- through the engine, until it is closed

    // Hands a full block to the disk, or writes it here and now where the engine does not take it. Its state
    // tells the end; it fails with ENOMEM's code when there is no memory for that.
    void write(const Qz::Ptr<WriteBlock>& block);
    // Writes bytes here and now. 1, or the platform's code.
    [[nodiscard]] unsigned writeNow(std::uint64_t position, const unsigned char* bytes, std::size_t size);
    // True when whole blocks went the way of all files, through the memory of the system.
    [[nodiscard]] bool isBuffered() const { return engineRefuses_; }
    void closeEngine();

    // --- through the handle of our own

    [[nodiscard]] iFile& handle() { return *handle_; }
    // Gives the claim back.
    void release() { handle_.reset(); }

    // --- names; a file of another recorder that stands under one is left alone

    // Gives the file its final name, as renameRecording does. fileVanished when it is gone.
    [[nodiscard]] MediaError giveName(bool* named);
    // True when it is gone, and when it was already.
    bool remove();
    // True when it does not stand under its unfinished name any more.
    [[nodiscard]] bool isGone();

private:
    MediaError checkNames() const;
    MediaError claimAndOpen();
    // Removes what was just made.
    MediaError undo(unsigned platformCode);
    void writeOrOffer(const Qz::Ptr<WriteBlock>& block);
    bool offer(const Qz::Ptr<WriteBlock>& block);

    const Path path_;
    const Path partialPath_;
    Qz::Ptr<iFile> handle_;
    FsysFile* file_ = nullptr;
    bool engineRefuses_ = false;
};
