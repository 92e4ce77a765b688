#pragma once

#include "os/linux/AtomicSave.h"

#include <string>

// A save that nobody waits for with a limit.
inline bool save(const std::string& path, const std::string& contents)
{
    os::Progress progress;
    return os::saveAtomically(path, contents, progress);
}
