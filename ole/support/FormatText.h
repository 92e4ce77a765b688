#pragma once

#include <cstdarg>
#include <string>

// The text that printf would write for format and arguments, wide text as UTF-8; rules in Log.h.
[[nodiscard]] std::string formatText(const char* format, std::va_list arguments)
    __attribute__((format(printf, 1, 0)));
