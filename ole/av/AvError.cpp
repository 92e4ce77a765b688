#include "av/AvError.h"

#include <cerrno>

extern "C" {
#include <libavutil/error.h>
}

namespace {

int errnoOf(MediaErrorCode code)
{
    switch (code) {
    case MediaErrorCode::notFound:
    case MediaErrorCode::unknownClip:
        return ENOENT;
    case MediaErrorCode::offline:
        return ENODEV;
    case MediaErrorCode::fileVanished:
        return ESTALE;
    case MediaErrorCode::givenUp:
        return ETIMEDOUT;
    case MediaErrorCode::diskFull:
        return ENOSPC;
    case MediaErrorCode::noMemory:
        return ENOMEM;
    case MediaErrorCode::alreadyExists:
        return EEXIST;
    case MediaErrorCode::unfinished:
        return EBUSY;
    case MediaErrorCode::notAFile:
    case MediaErrorCode::invalidArgument:
        return EINVAL;
    case MediaErrorCode::notOpen:
    case MediaErrorCode::engineNotRunning:
        return EBADF;
    default:
        return EIO;
    }
}

}  // namespace

int avErrorOf(MediaErrorCode code)
{
    switch (code) {
    case MediaErrorCode::none:
        return 0;
    case MediaErrorCode::beyondEnd:
        return AVERROR_EOF;
    case MediaErrorCode::cancelled:
        return AVERROR_EXIT;
    default:
        return AVERROR(errnoOf(code));
    }
}
