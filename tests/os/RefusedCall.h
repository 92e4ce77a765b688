#pragma once

#include <cerrno>
#include <cstddef>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <thread>

// What a sandbox does: from here on the kernel refuses one system call of this thread, and of threads
// that it starts, with error. There is no way back, so use runRefused.
inline bool refuseCall(unsigned number, unsigned error)
{
    constexpr unsigned allow = SECCOMP_RET_ALLOW;
    const unsigned refuse = SECCOMP_RET_ERRNO | error;
    sock_filter rules[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, number},
        {BPF_RET | BPF_K, 0, 0, refuse},
        {BPF_RET | BPF_K, 0, 0, allow},
    };
    const sock_fprog program{4, rules};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// Runs body on a thread of its own that is refused the call; false when the refusal cannot be set up.
template <class Body>
bool runRefused(unsigned number, Body body, unsigned error = EPERM)
{
    bool refused = false;
    std::thread([&] {
        refused = refuseCall(number, error);
        if (refused)
            body();
    }).join();
    return refused;
}
