#include "Answer.h"

#include <array>

#include <fcntl.h>
#include <unistd.h>

namespace {

FILE* output = stdout;
bool arrived = true;

void flushAnswer(int written) { arrived = written >= 0 && std::fflush(output) == 0 && arrived; }

}  // namespace

void holdStandardStreams()
{
    while (true) {
        const int lowestFree = open("/dev/null", O_RDWR);
        if (lowestFree <= STDERR_FILENO && lowestFree >= 0)
            continue;
        if (lowestFree >= 0)
            close(lowestFree);
        return;
    }
}

bool answerArrived() { return arrived; }

void takeStandardOutput(bool showLibraryOutput)
{
    const int kept = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (kept < 0)
        return;
    const int theirs = showLibraryOutput ? dup(STDERR_FILENO) : open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (theirs >= 0) {
        dup2(theirs, STDOUT_FILENO);
        close(theirs);
    }
    if (FILE* const stream = fdopen(kept, "w"))
        output = stream;
}

void answerJson(const Json& object)
{
    const std::string text = object.dump(-1, ' ', false, Json::error_handler_t::replace);
    flushAnswer(std::fprintf(output, "%s\n", text.c_str()));
}

void answer(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    flushAnswer(std::vfprintf(output, format, arguments));
    va_end(arguments);
}

void complain(const char* format, ...)
{
    std::fputs("fsys: ", stderr);
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputs("\n", stderr);
}

std::string readableBytes(double bytes)
{
    static constexpr std::array<const char*, 6> units{"B", "kB", "MB", "GB", "TB", "PB"};
    std::size_t unit = 0;
    while (bytes >= 1000 && unit + 1 < units.size()) {
        bytes /= 1000;
        ++unit;
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
    return text.data();
}
