#pragma once
// openDescriptors: how many descriptors this process has open, the one that counts them among them.
#include <cstddef>
#include <filesystem>
#include <iterator>

inline std::size_t openDescriptors()
{
    namespace fs = std::filesystem;
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}
