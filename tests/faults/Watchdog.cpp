#include "Watchdog.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

// Fixed, for it is read in signal handlers.
char present[512] = "nothing";

void tell(const char* why)
{
    for (const char* const part : {"\n*** ", why, ": ", static_cast<const char*>(present), "\n"})
        static_cast<void>(!write(STDERR_FILENO, part, std::strlen(part)));
}

void onSignal(int number)
{
    tell(number == SIGABRT ? "stopped at" : "crashed at");
    std::signal(number, SIG_DFL);
    std::raise(number);
}

}  // namespace

Watchdog::Watchdog(unsigned seconds) : thread_([this, seconds] { watch(seconds); })
{
    std::signal(SIGABRT, onSignal);
    // A sanitizer tells more about these than we could.
    if (sanitized)
        return;
    std::signal(SIGSEGV, onSignal);
    std::signal(SIGBUS, onSignal);
}

Watchdog::~Watchdog()
{
    {
        const std::lock_guard<std::mutex> hold(guard_);
        ends_ = true;
        changed_.notify_all();
    }
    thread_.join();
    for (const int number : {SIGABRT, SIGSEGV, SIGBUS})
        std::signal(number, SIG_DFL);
}

void Watchdog::at(const std::string& step)
{
    const std::lock_guard<std::mutex> hold(guard_);
    std::snprintf(present, sizeof present, "%s", step.c_str());
    ++step_;
    changed_.notify_all();
}

void Watchdog::bark(const char* why)
{
    tell(why);
    std::fflush(stdout);
    std::_Exit(1);
}

void Watchdog::watch(unsigned seconds)
{
    std::unique_lock<std::mutex> lock(guard_);
    while (!ends_) {
        const unsigned long seen = step_;
        const auto moved = [&] { return ends_ || step_ != seen; };
        if (!changed_.wait_for(lock, std::chrono::seconds(seconds), moved))
            bark("hangs at");
    }
}
