#pragma once

#include <cerrno>
#include <cstddef>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <thread>

inline bool addFilter(sock_filter* rules, unsigned short count)
{
    const sock_fprog program{count, rules};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// What a sandbox does: from here on the kernel refuses one system call of this thread, and of threads
// that it starts, with error. There is no way back, so use runRefused.
inline bool refuseCall(unsigned number, unsigned error)
{
    sock_filter rules[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, number},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | error},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    };
    return addFilter(rules, 4);
}

// One argument of a system call, its lower half.
struct Argument
{
    unsigned index;
    unsigned value;
};

// The same for calls with these two arguments.
inline bool refuseCall(unsigned number, Argument first, Argument second, unsigned error)
{
    const auto place = [](const Argument& argument) {
        return static_cast<unsigned>(offsetof(seccomp_data, args) + argument.index * sizeof(__u64));
    };
    sock_filter rules[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 5, number},
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, place(first)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 3, first.value},
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, place(second)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, second.value},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | error},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    };
    return addFilter(rules, 8);
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
