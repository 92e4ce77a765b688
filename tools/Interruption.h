#pragma once

#include <chrono>

// Interruption: SIGINT and SIGTERM end long work in order instead of at once.
//
// One object at a time, made before threads that are to look at it. A second signal ends the process.
class Interruption
{
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    [[nodiscard]] static bool isWanted();
    // Sleeps until time, or until an interruption is wanted. False for an interruption.
    static bool sleepUntil(std::chrono::steady_clock::time_point time);
};
