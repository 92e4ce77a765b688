// probe: what the library does in a process that starts with a given environment.
//
//   probe COMMAND ARGUMENTS [COMMAND ARGUMENTS]...
//
//   config KEY DEFAULT         prints config_int
//   write FILE TEXT            writes a file
//   log TEXT, both TEXT        Log, LogBoth
//   quiet 1, quiet 0           keeps LogBoth from standard output, and no longer
//   splat TEXT LEVEL           qa_splat
//   die                        ends the process at once, as a crash would, with status 3
//   many TEXT COUNT            Log, COUNT times
//   asking                     installs a log sink that prints preference "a" for each text
//   wide                       LogBoth of a wide text
//   get KEY DEFAULT            prints the preference and a line break
//   set KEY VALUE, remove KEY  prints 1 when it was saved, else 0
//
// With PROBE_EARLY in the environment the services are used before main, with PROBE_LATE by a static
// destructor that runs after those of everything that was made later.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <string>

#include "Qz/Utf8.h"
#include "support/ConfigInt.h"
#include "support/Log.h"
#include "support/Preferences.h"

namespace {

void useEverything(const char* when)
{
    const auto preference = prefs().getPreference("early", L"none");
    LogBoth("%s main: %d %ls\n", when, config_int("Early", 1), preference.c_str());
}

struct OutsideMain
{
    OutsideMain()
    {
        if (std::getenv("PROBE_EARLY"))
            useEverything("before");
    }
    ~OutsideMain()
    {
        if (std::getenv("PROBE_LATE"))
            useEverything("after");
    }
};

const OutsideMain outsideMain;

class AskingSink : public iLogSink
{
public:
    void log(const char*) override
    {
        std::printf("the sink has %s\n", toUTF8(prefs().getPreference("a", L"none")).c_str());
    }
    void logBoth(const char*) override {}
    void splat(const char*, int) override {}
    void debugText(int, int, const char*) override {}
};

struct Command
{
    int arguments;
    std::function<void(char**)> run;
};

const std::map<std::string, Command>& commands()
{
    static const std::map<std::string, Command> all{
        {"config", {2, [](char** a) { std::printf("%d\n", config_int(a[0], std::atoi(a[1]))); }}},
        {"write", {2, [](char** a) { std::ofstream(a[0], std::ios::trunc) << a[1]; }}},
        {"log", {1, [](char** a) { Log("%s", a[0]); }}},
        {"both", {1, [](char** a) { LogBoth("%s", a[0]); }}},
        {"quiet", {1, [](char** a) { setLogToStandardOutput(std::atoi(a[0]) == 0); }}},
        {"splat", {2, [](char** a) { qa_splat(a[0], std::atoi(a[1])); }}},
        {"die", {0, [](char**) { std::_Exit(3); }}},
        {"many",
         {2,
          [](char** a) {
              for (int i = std::atoi(a[1]); i > 0; --i)
                  Log("%s\n", a[0]);
          }}},
        {"wide", {0, [](char**) { LogBoth("Added media location : %ls\n", L"/m/K\u00F6ln \U0001F3AC"); }}},
        {"asking", {0, [](char**) { setLogSink(new AskingSink); }}},
        {"get",
         {2,
          [](char** a) {
              std::printf("%s\n", toUTF8(prefs().getPreference(a[0], fromUTF8(a[1]))).c_str());
          }}},
        {"set", {2, [](char** a) { std::printf("%d\n", prefs().setPreference(a[0], fromUTF8(a[1]))); }}},
        {"remove", {1, [](char** a) { std::printf("%d\n", prefs().removePreference(a[0])); }}},
    };
    return all;
}

}  // namespace

int main(int count, char** arguments)
{
    for (int at = 1; at < count;) {
        const auto found = commands().find(arguments[at]);
        if (found == commands().end() || at + found->second.arguments >= count) {
            std::fprintf(stderr, "probe: wrong usage at %s\n", arguments[at]);
            return 2;
        }
        found->second.run(arguments + at + 1);
        at += 1 + found->second.arguments;
    }
    return 0;
}
