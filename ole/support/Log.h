#pragma once

#include "Qz/LightweightString.h"
#include "support/Export.h"

// Log: what the system tells the people who look after it.
//
// Log writes to the log file, LogBoth to the log file and to standard output. Formats are those of
// printf; "%ls" and "%lc" take wide text and write it as UTF-8 whatever the locale is, width and
// precision count bytes, and a precision never cuts a character in two. From a directive on that is not
// known (numbered arguments, %n) the format is written as it stands. A line break is written only where
// the text has one.
//
// Log file:   FSYS_LOG names it; without that, or when that cannot be opened,
//             ${XDG_STATE_HOME:-~/.local/state}/fsys/fsys.log. Made with its folders by the first text,
//             then appended to. When neither can be opened, texts for the log alone are dropped.
// Threads:    any; one text is written whole. Usable before main and in static destructors.

// Writes to the log file alone.
SUPPORT_API void Log(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Writes to the log file and to standard output.
SUPPORT_API void LogBoth(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Whether LogBoth writes to standard output, as it does at first; the log file gets its texts in any case.
// For programs whose standard output is an answer.
SUPPORT_API void setLogToStandardOutput(bool on);

// Reports something that should not happen; the higher the level, the worse. Goes to the log as a line.
SUPPORT_API void qa_splat(const char* text, int level);

// Puts text (UTF-8) on the debug text screen at column and row, over what stood there. The screen has 128
// columns and 64 rows, counted from 0; what does not fit is cut off, control characters are blanks.
SUPPORT_API void herc_putstr(int column, int row, const char* text);
// A row of the debug text screen, blanks at its end cut off; empty for a row that is none.
[[nodiscard]] SUPPORT_API LightweightString<char> herc_row(int row);

// iLogSink: gets everything in place of the files; the debug text screen is kept all the same. Called
// under the log's lock, so a sink must not log.
class SUPPORT_API iLogSink
{
public:
    virtual ~iLogSink() = default;
    virtual void log(const char* text) = 0;      // Log
    virtual void logBoth(const char* text) = 0;  // LogBoth
    // What qa_splat was given.
    virtual void splat(const char* text, int level) = 0;
    // What herc_putstr was given.
    virtual void debugText(int column, int row, const char* text) = 0;
};
// Installs a sink and returns the one before, which gets no more calls; null brings the files back. For
// tests and for applications with a log of their own.
SUPPORT_API iLogSink* setLogSink(iLogSink* sink);
