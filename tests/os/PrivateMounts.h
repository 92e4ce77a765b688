#pragma once

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

// PrivateMounts: mounts that only this process sees. Needs the rights of an administrator; tests ask
// available() first and skip without it.
class PrivateMounts
{
public:
    PrivateMounts()
    {
        available_ =
            ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }
    [[nodiscard]] bool available() const { return available_; }

    static bool mountMemory(const std::string& point, const std::string& source = "memory")
    {
        return ::mount(source.c_str(), point.c_str(), "tmpfs", 0, "size=1m") == 0;
    }
    static bool bind(const std::string& folder, const std::string& point)
    {
        return ::mount(folder.c_str(), point.c_str(), nullptr, MS_BIND, nullptr) == 0;
    }
    static bool unmount(const std::string& point) { return ::umount2(point.c_str(), MNT_DETACH) == 0; }

private:
    bool available_ = false;
};

// SilentServer: a user-space file system whose server never answers, so that every call into it hangs
// until the server goes away with this object.
class SilentServer
{
public:
    explicit SilentServer(const std::string& point) : point_(point)
    {
        device_ = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
        const std::string options =
            "fd=" + std::to_string(device_) + ",rootmode=40000,user_id=0,group_id=0,subtype=sshfs";
        mounted_ =
            device_ >= 0 && ::mount("someone@server:/media", point_.c_str(), "fuse", 0, options.c_str()) == 0;
    }
    ~SilentServer()
    {
        if (mounted_)
            ::umount2(point_.c_str(), MNT_DETACH);
        if (device_ >= 0)
            ::close(device_);
    }
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;

    [[nodiscard]] bool mounted() const { return mounted_; }
    // Every call that hangs fails from now on.
    void stop()
    {
        ::close(device_);
        device_ = -1;
    }

private:
    std::string point_;
    int device_ = -1;
    bool mounted_ = false;
};
