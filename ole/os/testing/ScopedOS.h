#pragma once

#include "os/OS.h"

// ScopedOS: puts an operating system in place of OS() for a scope, and the one before back at its end.
class ScopedOS
{
public:
    explicit ScopedOS(iOperatingSystem& replacement) : before_(setOS(&replacement)) {}
    ~ScopedOS() { setOS(before_); }
    ScopedOS(const ScopedOS&) = delete;
    ScopedOS& operator=(const ScopedOS&) = delete;

private:
    iOperatingSystem* before_;
};
