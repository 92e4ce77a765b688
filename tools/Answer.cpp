#include "Answer.h"

#include <array>
#include <cstdlib>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace {

FILE* output = stdout;
bool arrived = true;

void flushAnswer(int written) { arrived = written >= 0 && std::fflush(output) == 0 && arrived; }

__attribute__((format(printf, 1, 0))) std::string formatted(const char* format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(length > 0 ? static_cast<std::size_t>(length) + 1 : 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

// Names may hold what a terminal takes for a command.
void replaceControls(std::string& text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool isControl = (byte < 0x20 && byte != '\n' && byte != '\t') || byte == 0x7F;
        // U+0080 to U+009F, the second set of controls.
        const bool isLateControl =
            byte == 0xC2 && i + 1 < text.size() && (static_cast<unsigned char>(text[i + 1]) & 0xE0) == 0x80;
        if (isControl)
            text[i] = '?';
        else if (isLateControl)
            text.replace(i, 2, "?");
    }
}

int print(FILE* stream, std::string text)
{
    if (isatty(fileno(stream)) != 0)
        replaceControls(text);
    return std::fwrite(text.data(), 1, text.size(), stream) == text.size() ? 0 : -1;
}

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

int answerTerminal()
{
    const char* const kind = std::getenv("TERM");
    const bool canDraw = kind && *kind != '\0' && std::string_view(kind) != "dumb";
    return canDraw && isatty(fileno(output)) == 1 ? fileno(output) : -1;
}

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

std::string jsonLine(const Json& object)
{
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void answerJson(const Json& object) { flushAnswer(std::fprintf(output, "%s\n", jsonLine(object).c_str())); }

void answer(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    flushAnswer(print(output, formatted(format, arguments)));
    va_end(arguments);
}

void complain(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    print(stderr, "fsys: " + formatted(format, arguments) + "\n");
    va_end(arguments);
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
