#include "support/Log.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

#include "Qz/Utf8.h"
#include "support/DebugScreen.h"
#include "support/FormatText.h"
#include "support/LogFile.h"

namespace {

struct LogState
{
    std::mutex lock;
    iLogSink* sink = nullptr;
    bool toStandardOutput = true;
    LogFile file;
    DebugScreen screen;
};

// Never destroyed: static destructors may log.
LogState& state()
{
    static auto* theState = new LogState;
    return *theState;
}

void writeToStandardOutput(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

}  // namespace

void Log(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text = formatText(format, arguments);
    va_end(arguments);

    LogState& log = state();
    const std::lock_guard guard(log.lock);
    if (log.sink)
        log.sink->log(text.c_str());
    else
        log.file.append(text);
}

void LogBoth(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text = formatText(format, arguments);
    va_end(arguments);

    LogState& log = state();
    const std::lock_guard guard(log.lock);
    if (log.sink) {
        log.sink->logBoth(text.c_str());
        return;
    }
    log.file.append(text);
    if (log.toStandardOutput)
        writeToStandardOutput(text);
}

void setLogToStandardOutput(bool on)
{
    LogState& log = state();
    const std::lock_guard guard(log.lock);
    log.toStandardOutput = on;
}

void qa_splat(const char* text, int level)
{
    text = text ? text : "";
    LogState& log = state();
    const std::lock_guard guard(log.lock);
    if (log.sink) {
        log.sink->splat(text, level);
        return;
    }
    std::string line = "qa_splat(" + std::to_string(level) + "): " + text;
    if (!line.ends_with('\n'))
        line += '\n';
    log.file.append(line);
}

void herc_putstr(int column, int row, const char* text)
{
    text = text ? text : "";
    LogState& log = state();
    const LightweightString<wchar_t> shown = fromUTF8(text);
    const std::lock_guard guard(log.lock);
    log.screen.put(column, row, shown.view());
    if (log.sink)
        log.sink->debugText(column, row, text);
}

LightweightString<char> herc_row(int row)
{
    LogState& log = state();
    const std::lock_guard guard(log.lock);
    return log.screen.row(row);
}

iLogSink* setLogSink(iLogSink* sink)
{
    LogState& log = state();
    const std::lock_guard guard(log.lock);
    return std::exchange(log.sink, sink);
}
