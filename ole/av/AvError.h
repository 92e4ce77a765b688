#pragma once

#include "av/Export.h"
#include "media/MediaError.h"

// The code by which libavformat and libavcodec know an error: 0 for none, else negative, for av_strerror.
//
//   beyondEnd                        AVERROR_EOF
//   cancelled                        AVERROR_EXIT
//   notFound, unknownClip            ENOENT         offline         ENODEV
//   fileVanished                     ESTALE         givenUp         ETIMEDOUT
//   diskFull                         ENOSPC         noMemory        ENOMEM
//   alreadyExists                    EEXIST         unfinished      EBUSY
//   notAFile, invalidArgument        EINVAL         notOpen, engineNotRunning   EBADF
//   all others                       EIO
[[nodiscard]] AV_API int avErrorOf(MediaErrorCode code);
