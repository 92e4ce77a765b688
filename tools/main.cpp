#include "CommandLine.h"

#include <exception>
#include <string>
#include <utility>
#include <vector>

#include <sys/resource.h>

namespace {

// Each open media file takes up to three descriptors; the usual limit is there for programs that can count no
// further.
void raiseDescriptorLimit()
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

int run(std::vector<std::string> words)
{
    CommandLine line;
    const int status = line.parse(std::move(words));
    if (!line.action())
        return status;
    takeStandardOutput(line.options().verbose);
    const int answer = line.action()();
    if (answerArrived())
        return answer;
    complain("the answer could not be written");
    return exitFailed;
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    holdStandardStreams();
    raiseDescriptorLimit();
    try {
        return run({arguments + (argumentCount > 0 ? 1 : 0), arguments + argumentCount});
    } catch (const std::exception& error) {
        complain("%s", error.what());
        return exitFailed;
    }
}
