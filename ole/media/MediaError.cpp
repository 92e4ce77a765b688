#include "media/MediaError.h"

const char* nameOf(MediaErrorCode code)
{
    switch (code) {
    case MediaErrorCode::none:
        return "none";
    case MediaErrorCode::engineNotRunning:
        return "engineNotRunning";
    case MediaErrorCode::notOpen:
        return "notOpen";
    case MediaErrorCode::invalidArgument:
        return "invalidArgument";
    case MediaErrorCode::unknownClip:
        return "unknownClip";
    case MediaErrorCode::offline:
        return "offline";
    case MediaErrorCode::notFound:
        return "notFound";
    case MediaErrorCode::notAFile:
        return "notAFile";
    case MediaErrorCode::alreadyExists:
        return "alreadyExists";
    case MediaErrorCode::unfinished:
        return "unfinished";
    case MediaErrorCode::beyondEnd:
        return "beyondEnd";
    case MediaErrorCode::fileShrank:
        return "fileShrank";
    case MediaErrorCode::fileVanished:
        return "fileVanished";
    case MediaErrorCode::cancelled:
        return "cancelled";
    case MediaErrorCode::givenUp:
        return "givenUp";
    case MediaErrorCode::noMemory:
        return "noMemory";
    case MediaErrorCode::readFailed:
        return "readFailed";
    case MediaErrorCode::writeFailed:
        return "writeFailed";
    case MediaErrorCode::diskFull:
        return "diskFull";
    case MediaErrorCode::flushFailed:
        return "flushFailed";
    case MediaErrorCode::renameFailed:
        return "renameFailed";
    }
    return "unknown";
}
