#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool sanitized = true;  // runs take several times as long
#else
inline constexpr bool sanitized = false;
#endif
#else
inline constexpr bool sanitized = false;
#endif

// Watchdog: ends the process, telling what it was at, when that takes too long or ends it by a signal.
class Watchdog
{
public:
    // Real seconds that one step may take.
    explicit Watchdog(unsigned seconds);
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    // A new step begins.
    void at(const std::string& step);
    // The present one hangs. Does not return.
    [[noreturn]] static void bark(const char* why);

private:
    void watch(unsigned seconds);

    std::mutex guard_;  // guards what follows
    std::condition_variable changed_;
    unsigned long step_ = 0;
    bool ends_ = false;
    std::thread thread_;  // last: it uses the rest
};
