#pragma once

#include "Qz/LightweightString.h"
#include "Qz/Ptr.h"
#include "media/MediaError.h"
#include "os/iFile.h"

#include <cstdint>

class FsysFile;

// ReadSource: the file behind a reader, and whether it is still the one that was opened.
//
// The engine reads through handles of its own. A handle of ours on the same file tells its size, and that it
// has lost its name, which the engine does not.
//
// Threads:    open by one thread, before all else; the rest from any.
class ReadSource
{
public:
    using Path = LightweightString<wchar_t>;

    // isClip: the file stands for a clip, so it is offline where a plain path would not be found.
    ReadSource(const Path& path, bool isClip);

    [[nodiscard]] MediaError open();
    // What the file is like now. fileVanished when it has no name any more.
    [[nodiscard]] MediaError look(FILE_INFO& info) const;
    // Opens the file with the engine. Null, and *error, when that fails or when the path leads to another
    // file by now. The caller closes it.
    [[nodiscard]] FsysFile* openWithEngine(unsigned coalesceLength, MediaError& error) const;

    // An error of this file, as its users are told: "PATH: SENTENCE (what the platform says)".
    [[nodiscard]] MediaError error(MediaErrorCode code, unsigned platformCode = 0) const;
    // Of a question or transfer that failed: offline when the drive or the server cannot be reached.
    [[nodiscard]] MediaError failure(unsigned platformCode) const;
    // The file as it was when it was opened.
    [[nodiscard]] const FILE_INFO& atOpen() const { return atOpen_; }

    [[nodiscard]] const Path& path() const { return path_; }
    // The target of a link, else the path.
    [[nodiscard]] const Path& target() const { return target_; }

private:
    [[nodiscard]] MediaError openingError(unsigned platformCode) const;
    [[nodiscard]] MediaError checkSameFile() const;

    const Path path_;
    const bool isClip_;
    Path target_;
    bool isLink_ = false;
    bool isRecording_ = false;  // by its name: an unfinished one
    Qz::Ptr<iFile> handle_;
    FILE_INFO atOpen_;
};

// The same for an error that belongs to no open file; about may be empty.
[[nodiscard]] MediaError readError(MediaErrorCode code, unsigned platformCode,
                                   const LightweightString<wchar_t>& about);
