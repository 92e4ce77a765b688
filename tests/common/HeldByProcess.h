#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <thread>

// What this process holds of the system, to find out what was left behind.

inline long descriptorsHeld()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

// Without the helpers that the process keeps for a while, whoever asked for them first. A thread that has
// been joined may be listed for a moment longer, so this looks again while there are more than wanted.
inline long threadsHeld(long wanted = std::numeric_limits<long>::max())
{
    const auto look = [] {
        long count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
            std::ifstream file(entry.path() / "comm");
            std::string name;
            const bool isThere = static_cast<bool>(std::getline(file, name));
            count += isThere && name != "page trimmer" && name != "fsys calls" ? 1 : 0;
        }
        return count;
    };
    long count = look();
    for (int tries = 0; count > wanted && tries < 1000; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        count = look();
    }
    return count;
}

inline long ringMappingsHeld()
{
    std::ifstream maps("/proc/self/maps");
    long found = 0;
    for (std::string line; std::getline(maps, line);)
        found += line.find("io_uring") != std::string::npos ? 1 : 0;
    return found;
}
