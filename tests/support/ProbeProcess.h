#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "TempFolder.h"

// ProbeProcess: one run of the probe program with an environment of its own. HOME is an empty folder unless
// the test gives another.
//
// Ownership:  waits for the process at its end if the test has not.
class ProbeProcess
{
public:
    using Environment = std::map<std::string, std::string>;
    struct Result
    {
        int status;       // exit status, or -1 when a signal ended it
        std::string out;  // standard output
        std::string err;  // standard error
    };

    ProbeProcess(Environment environment, std::vector<std::string> arguments)
    {
        environment.emplace("HOME", folder_.path());
        for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "PATH"})
            if (const char* value = std::getenv(name))
                environment.emplace(name, value);
        std::vector<std::string> assignments;
        for (const auto& [name, value] : environment)
            assignments.push_back(name + '=' + value);
        arguments.insert(arguments.begin(), SUPPORT_PROBE);

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        constexpr int makeNew = O_WRONLY | O_CREAT | O_TRUNC;
        posix_spawn_file_actions_addopen(&actions, 1, folder_.path("stdout").c_str(), makeNew, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, folder_.path("stderr").c_str(), makeNew, 0600);
        const int failed = posix_spawn(&id_, SUPPORT_PROBE, &actions, nullptr, pointers(arguments).data(),
                                       pointers(assignments).data());
        posix_spawn_file_actions_destroy(&actions);
        if (failed)
            throw std::runtime_error("the probe program does not start");
    }
    ~ProbeProcess()
    {
        if (id_ > 0)
            wait();
    }
    ProbeProcess(const ProbeProcess&) = delete;
    ProbeProcess& operator=(const ProbeProcess&) = delete;

    Result wait()
    {
        int status = -1;
        waitpid(id_, &status, 0);
        id_ = 0;
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, folder_.read("stdout"), folder_.read("stderr")};
    }

private:
    static std::vector<char*> pointers(std::vector<std::string>& texts)
    {
        std::vector<char*> result;
        for (std::string& text : texts)
            result.push_back(text.data());
        result.push_back(nullptr);
        return result;
    }

    TempFolder folder_;
    pid_t id_ = 0;
};

inline ProbeProcess::Result runProbe(const ProbeProcess::Environment& environment,
                                     const std::vector<std::string>& arguments)
{
    return ProbeProcess(environment, arguments).wait();
}
