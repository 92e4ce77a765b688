#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "support/Log.h"

// Fuzz: what the fuzz targets share.
//
// A target is one file with LLVMFuzzerTestOneInput. It feeds one parser with the input and checks what comes
// out against a rule that does not depend on the parser: a round trip, a model, a bound. fuzz/run.sh runs
// them.

inline std::string_view textOf(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

// Ends the process when a rule is broken; the input is then kept by the fuzzer.
inline void require(bool holds, const char* rule)
{
    if (holds)
        return;
    std::fprintf(stderr, "broken: %s\n", rule);
    std::abort();
}

// An input that stands for several texts: they are parted by the character that no text has any use for.
inline std::vector<std::string_view> partsOf(std::string_view text, std::size_t count)
{
    constexpr char separator = '\x1E';
    std::vector<std::string_view> parts;
    while (parts.size() + 1 < count) {
        const std::size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    parts.push_back(text);
    return parts;
}

// Nobody reads the log of a fuzzer.
class NoLog : public iLogSink
{
public:
    NoLog() { setLogSink(this); }
    void log(const char* /*text*/) override {}
    void logBoth(const char* /*text*/) override {}
    void splat(const char* /*text*/, int /*level*/) override {}
    void debugText(int /*column*/, int /*row*/, const char* /*text*/) override {}
};
