#include "Gnuplot.h"

#include "os/LastError.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A file in memory: takes and gives any amount, where a pipe would need somebody at its other end.
class MemoryFile
{
public:
    explicit MemoryFile(const char* name) : fd_(memfd_create(name, MFD_CLOEXEC)) {}
    ~MemoryFile()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] int fd() const { return fd_; }
    [[nodiscard]] bool fill(const std::string& text) const
    {
        std::size_t done = 0;
        while (done < text.size()) {
            const ssize_t written =
                pwrite(fd_, text.data() + done, text.size() - done, static_cast<off_t>(done));
            if (written <= 0)
                return false;
            done += static_cast<std::size_t>(written);
        }
        return true;
    }
    [[nodiscard]] std::string contents() const
    {
        std::string text;
        std::array<char, 65536> part{};
        for (;;) {
            const ssize_t got = pread(fd_, part.data(), part.size(), static_cast<off_t>(text.size()));
            if (got <= 0)
                return text;
            text.append(part.data(), static_cast<std::size_t>(got));
        }
    }

private:
    int fd_;
};

std::string errorOf(int number) { return errorText(errorFromErrno(number)).str(); }

// 0, or an errno value; started is the child then.
int start(const MemoryFile& script, const MemoryFile& picture, const MemoryFile& complaints, pid_t& started)
{
    posix_spawn_file_actions_t actions;
    if (const int failure = posix_spawn_file_actions_init(&actions); failure != 0)
        return failure;
    posix_spawn_file_actions_adddup2(&actions, script.fd(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, picture.fd(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, complaints.fd(), STDERR_FILENO);
    std::array<std::string, 3> words{"gnuplot", "--default-settings", "-"};
    std::array<char*, 4> arguments{words[0].data(), words[1].data(), words[2].data(), nullptr};
    const int failure =
        posix_spawnp(&started, words[0].c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failure;
}

// What stands in its last line tells the reason; those before show the place.
std::string lastLine(std::string text)
{
    const auto isSpace = [](char c) { return c == '\n' || c == '\r' || c == ' ' || c == '\t'; };
    while (!text.empty() && isSpace(text.back()))
        text.pop_back();
    text.erase(0, text.find_last_of('\n') + 1);
    text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), isSpace));
    return text;
}

}  // namespace

GnuplotRun runGnuplot(const std::string& script)
{
    const MemoryFile input("gnuplot script");
    const MemoryFile picture("gnuplot picture");
    const MemoryFile complaints("gnuplot complaints");
    if (input.fd() < 0 || picture.fd() < 0 || complaints.fd() < 0 || !input.fill(script))
        return {.output = {}, .error = "no memory for gnuplot: " + errorOf(errno)};
    pid_t child = 0;
    const int failure = start(input, picture, complaints, child);
    if (failure == ENOENT)
        return {.output = {}, .error = "gnuplot is not installed (on Debian: apt install gnuplot-nox)"};
    if (failure != 0)
        return {.output = {}, .error = "gnuplot cannot be started: " + errorOf(failure)};
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return {.output = {}, .error = "gnuplot was lost: " + errorOf(errno)};
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return {.output = picture.contents(), .error = {}};
    const std::string reason = lastLine(complaints.contents());
    return {.output = {}, .error = "gnuplot failed" + (reason.empty() ? "" : ": " + reason)};
}
