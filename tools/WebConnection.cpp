#include "WebConnection.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr auto longestWait = std::chrono::milliseconds(100);
constexpr auto leaveTimeMax = std::chrono::seconds(1);
constexpr std::size_t leftBytesMax = std::size_t{1} << 20;
constexpr std::string_view emptyLine = "\r\n\r\n";

bool isToWait(ssize_t result)
{
    return result < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
}

}  // namespace

WebConnection::~WebConnection() { close(socket_); }

std::optional<std::string> WebConnection::readHead()
{
    const auto end = Clock::now() + headTimeMax;
    std::string head;
    std::array<char, 4096> buffer{};
    while (head.size() < headBytesMax) {
        const ssize_t got = recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (isToWait(got) && waitFor(POLLIN, end))
            continue;
        if (got <= 0)
            return std::nullopt;
        const std::size_t from = head.size() - std::min(head.size(), emptyLine.size() - 1);
        head.append(buffer.data(), static_cast<std::size_t>(got));
        if (const std::size_t at = head.find(emptyLine, from); at != std::string::npos)
            return head.substr(0, at + emptyLine.size());
    }
    return head;
}

void WebConnection::sendNow(std::string_view text)
{
    if (send(socket_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
        shutdown(socket_, SHUT_WR);
}

void WebConnection::finish()
{
    shutdown(socket_, SHUT_WR);
    const auto end = Clock::now() + leaveTimeMax;
    std::array<char, 4096> buffer{};
    for (std::size_t left = leftBytesMax; left > 0;) {
        const ssize_t got = recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (isToWait(got) && waitFor(POLLIN, end))
            continue;
        if (got <= 0)
            return;
        left -= std::min(left, static_cast<std::size_t>(got));
    }
}

ssize_t WebConnection::read(char* bytes, size_t count)
{
    const std::size_t given = fed_.copy(bytes, count, readTo_);
    readTo_ += given;
    return static_cast<ssize_t>(given);
}

ssize_t WebConnection::write(const char* bytes, size_t count)
{
    if (!answerEnd_)
        answerEnd_ = Clock::now() + answerTimeMax;
    std::size_t sent = 0;
    while (sent < count) {
        const ssize_t got = send(socket_, bytes + sent, count - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (got >= 0)
            sent += static_cast<std::size_t>(got);
        else if (!isToWait(got) || !waitFor(POLLOUT, *answerEnd_))
            return -1;
    }
    return static_cast<ssize_t>(sent);
}

void WebConnection::get_remote_ip_and_port(std::string& ip, int& port) const
{
    ip.clear();
    port = 0;
}

void WebConnection::get_local_ip_and_port(std::string& ip, int& port) const
{
    ip.clear();
    port = 0;
}

bool WebConnection::waitFor(short events, Clock::time_point end) const
{
    for (auto now = Clock::now(); now < end && !stopping_; now = Clock::now()) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(std::min<Clock::duration>(end - now, longestWait));
        pollfd ready = {socket_, events, 0};
        if (poll(&ready, 1, static_cast<int>(left.count())) > 0)
            return true;
    }
    return false;
}
