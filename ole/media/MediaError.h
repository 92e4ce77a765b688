#pragma once

#include "media/Export.h"

#include <string>

// Why something with media did not work.
enum class MediaErrorCode : unsigned {
    none,              // nothing is wrong
    engineNotRunning,  // FsysInitialize has not been called, or the engine has ended
    notOpen,           // the reader or writer could not be opened, or is finished
    invalidArgument,   // the call makes no sense; the text says why
    unknownClip,       // no media of the clip is known
    offline,           // the clip's media, or the target of its link, cannot be reached
    notFound,          // no such file or folder
    notAFile,          // a folder, a pipe, a device
    alreadyExists,     // a finished file stands where a recording is to go
    unfinished,        // an unfinished recording stands there (see Recovery.h), or is being written there
    beyondEnd,         // the place to read lies at or behind the end of the file
    fileShrank,        // the file has become shorter than the range while it was read
    fileVanished,      // the file was removed or replaced after it had been opened
    cancelled,         // by the caller, before it was started
    givenUp,           // the transfer did not end in time
    noMemory,          // for a buffer or a request
    readFailed,        // the disk, or the server, refused it
    writeFailed,       // the disk, or the server, refused it
    diskFull,          // also a quota, or the largest file that the file system takes
    flushFailed,       // what was written may not be on the device
    renameFailed,      // the final name could not be given, or may not last
};

// MediaError: a code for programs, and a sentence for people.
struct MEDIA_API MediaError
{
    MediaErrorCode code = MediaErrorCode::none;  // none without an error
    unsigned platformCode = 0;                   // of os/LastError.h; 0 when the platform did not say
    std::string text;                            // UTF-8, with the path; empty without an error

    // True for an error.
    explicit operator bool() const { return code != MediaErrorCode::none; }
};

// "fileShrank": the name of a code, for logs and scripts.
[[nodiscard]] MEDIA_API const char* nameOf(MediaErrorCode code);
