#pragma once

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

// WebConnection: one accepted connection: reads the head of its request, then carries the answer.
//
// What a client may cost is bounded: so many bytes of head, so much time for the head, so much for the
// answer, however slowly it sends or reads.
//
// Ownership:  owns the socket and closes it. Borrows stopping, which ends every wait early.
class WebConnection : public httplib::Stream
{
public:
    static constexpr std::size_t headBytesMax = 16384;
    static constexpr auto headTimeMax = std::chrono::seconds(2);
    static constexpr auto answerTimeMax = std::chrono::seconds(10);

    WebConnection(int socket, const std::atomic<bool>& stopping) : socket_(socket), stopping_(stopping) {}
    ~WebConnection() override;
    WebConnection(const WebConnection&) = delete;
    WebConnection& operator=(const WebConnection&) = delete;

    // The head with its empty line; without one when it is too long; none when it did not come in time.
    [[nodiscard]] std::optional<std::string> readHead();
    // What read gives from now on, instead of what the client sends.
    void feed(std::string text) { fed_ = std::move(text); }
    // Sends text as far as that goes without waiting.
    void sendNow(std::string_view text);
    // Tells the client that all is said, and takes what it still sends, for a moment: an answer is lost when
    // the socket is closed over unread bytes.
    void finish();

    [[nodiscard]] bool is_readable() const override { return readTo_ < fed_.size(); }
    [[nodiscard]] bool is_writable() const override { return true; }
    ssize_t read(char* bytes, size_t count) override;
    ssize_t write(const char* bytes, size_t count) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    [[nodiscard]] socket_t socket() const override { return socket_; }

private:
    using Clock = std::chrono::steady_clock;

    // False when the time is over or the server stops.
    [[nodiscard]] bool waitFor(short events, Clock::time_point end) const;

    int socket_;
    const std::atomic<bool>& stopping_;
    std::string fed_;
    std::size_t readTo_ = 0;
    std::optional<Clock::time_point> answerEnd_;
};
