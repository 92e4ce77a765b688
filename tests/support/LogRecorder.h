#pragma once

#include <string>
#include <vector>

#include "support/Log.h"

// LogRecorder: a log sink that keeps what it gets, each call as one text: "log ...", "both ...",
// "splat LEVEL ...", "debug COLUMN ROW ...". Installed for its lifetime.
//
// Threads:    the log's lock guards the texts; read them when nobody logs.
class LogRecorder : public iLogSink
{
public:
    LogRecorder() : before_(setLogSink(this)) {}
    ~LogRecorder() override { setLogSink(before_); }
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    void log(const char* text) override { texts.push_back(std::string("log ") + text); }
    void logBoth(const char* text) override { texts.push_back(std::string("both ") + text); }
    void splat(const char* text, int level) override
    {
        texts.push_back("splat " + std::to_string(level) + ' ' + text);
    }
    void debugText(int column, int row, const char* text) override
    {
        texts.push_back("debug " + std::to_string(column) + ' ' + std::to_string(row) + ' ' + text);
    }

    std::vector<std::string> texts;

private:
    iLogSink* before_;
};
