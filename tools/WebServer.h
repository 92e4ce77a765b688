#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// WebServer: gives out a fixed set of pages over HTTP, and takes nothing.
//
// Only GET and HEAD are answered, and only for the paths that were added: no file is ever named by a request.
// Threads, waiting connections, bytes and time of each request are bounded. Every answer forbids the browser
// scripts, frames and forms of others, and is kept nowhere.
//
// Threads:  add and bind before start; start and stop from one thread; the functions of pages run on several.
class WebServer
{
public:
    WebServer();
    // Ends as stop does.
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    // body is asked at each request.
    void add(const std::string& path, const std::string& type, std::function<std::string()> body);
    // Takes a port of address (numbers, no name), any for 0; connections wait from now on. Answers which, or
    // 0: errno tells why not. On an address of the loopback requests for other names than those of this
    // machine are refused.
    [[nodiscard]] int bind(const std::string& address, int port);
    void start();
    void stop();

    [[nodiscard]] std::uint64_t answered() const;
    [[nodiscard]] std::uint64_t
    refused() const;  // for their form, their method, their host, or for lack of threads

private:
    class Server;
    std::unique_ptr<Server> server_;
};
