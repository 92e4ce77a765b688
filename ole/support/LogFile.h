#pragma once

#include <cstdio>
#include <string_view>

// LogFile: the file behind Log, found, made and opened by the first text; never closed.
//
// Threads:    none of its own.
// Errors:     a text that cannot be written is dropped.
class LogFile
{
public:
    // Appends text with one write, so that processes that share the file do not mix their texts.
    void append(std::string_view text);

private:
    bool tried_ = false;
    std::FILE* file_ = nullptr;
};
