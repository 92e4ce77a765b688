#pragma once

#include "common/TemporaryFolder.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

// FaultFs: a folder seen through a server of user space that fails on command (fault_fs.cpp), mounted as a
// network file system. The server and the mount go with this object; whoever still waits for it is freed.
//
// REQUIRES: a mount table of this process's own, and $FAULT_FS.
class FaultFs
{
public:
    enum class Memory { ofKernel, none };

    explicit FaultFs(Memory memory = Memory::ofKernel, const std::string& type = "sshfs")
    {
        rule("");
        const std::string options = "fsname=someone@server:/media,max_threads=64,subtype=" + type;
        server_ = ::fork();
        if (server_ == 0) {
            const char* const program = std::getenv("FAULT_FS");
            if (memory == Memory::none)
                ::setenv("FAULT_FS_DIRECT", "1", 1);
            ::execl(program, program, rules_.c_str(), below_.c_str(), "-f", "-o", options.c_str(),
                    point_.c_str(), nullptr);
            ::_exit(127);
        }
        for (int tries = 0; tries < 2000 && !isMounted(); ++tries)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        mounted_ = isMounted();
    }
    ~FaultFs()
    {
        rule("");
        ::umount2(point_.c_str(), MNT_DETACH);
        if (server_ > 0) {
            ::kill(server_, SIGKILL);
            ::waitpid(server_, nullptr, 0);
        }
    }
    FaultFs(const FaultFs&) = delete;
    FaultFs& operator=(const FaultFs&) = delete;

    [[nodiscard]] bool mounted() const { return mounted_; }
    [[nodiscard]] const std::string& point() const { return point_; }
    // The folder itself, past the server.
    [[nodiscard]] const std::string& below() const { return below_; }
    [[nodiscard]] pid_t server() const { return server_; }

    // The rules from now on, one per line; none lets everything through.
    void rule(const std::string& lines) const
    {
        std::ofstream(rules_ + ".new") << lines << '\n';
        std::filesystem::rename(rules_ + ".new", rules_);
    }
    // How often operation has met a rule so far.
    [[nodiscard]] int fired(const std::string& operation) const
    {
        int count = 0;
        std::istringstream lines(contentsOf(rules_ + ".fired"));
        for (std::string line; std::getline(lines, line);)
            count += line.starts_with(operation + ' ') ? 1 : 0;
        return count;
    }
    // False when that does not happen.
    [[nodiscard]] bool waitUntilFired(const std::string& operation, int times = 1) const
    {
        for (int tries = 0; fired(operation) < times; ++tries) {
            if (tries == 5000)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

private:
    // By the table: a question would wait for the server.
    [[nodiscard]] bool isMounted() const
    {
        return contentsOf("/proc/self/mountinfo").find(' ' + point_ + ' ') != std::string::npos;
    }

    TemporaryFolder folder_;
    std::string rules_ = folder_ / "rules";
    std::string below_ = folder_.folder("below");
    std::string point_ = folder_.folder("mount");
    pid_t server_ = -1;
    bool mounted_ = false;
};
