#pragma once

#include <unistd.h>

#include <utility>

namespace os {

// ScopedFd: a file descriptor that is closed at the end of its scope. -1 is none.
class ScopedFd
{
public:
    ScopedFd() noexcept = default;
    explicit ScopedFd(int fd) noexcept : fd_(fd) {}
    ScopedFd(ScopedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    ScopedFd& operator=(ScopedFd&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~ScopedFd() { close(); }

    [[nodiscard]] int get() const noexcept { return fd_; }
    [[nodiscard]] bool isOpen() const noexcept { return fd_ >= 0; }
    // Gives the descriptor away.
    [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }
    // False when closing reports an error, as it does when a delayed write has failed; errno tells which.
    bool close() noexcept
    {
        const int fd = release();
        return fd < 0 || ::close(fd) == 0;
    }

private:
    int fd_ = -1;
};

}  // namespace os
