#include "WebServer.h"

#include "ConnectionQueue.h"
#include "RequestHead.h"
#include "WebConnection.h"

#include <atomic>
#include <map>
#include <optional>
#include <thread>
#include <utility>

#include <sys/socket.h>

namespace {

constexpr time_t idleLookUs = 100'000;

const httplib::Headers& guardingFields()
{
    static const httplib::Headers fields{
        {"Content-Security-Policy",
         "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self'; "
         "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
        {"X-Content-Type-Options", "nosniff"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Referrer-Policy", "no-referrer"},
        {"Cache-Control", "no-store"},
    };
    return fields;
}

const char* reasonOf(HttpStatus status)
{
    switch (status) {
    case HttpStatus::ok:
        return "OK";
    case HttpStatus::methodNotAllowed:
        return "Method Not Allowed";
    case HttpStatus::targetTooLong:
        return "URI Too Long";
    case HttpStatus::misdirected:
        return "Misdirected Request";
    case HttpStatus::tooManyFields:
        return "Request Header Fields Too Large";
    case HttpStatus::unavailable:
        return "Service Unavailable";
    case HttpStatus::badRequest:
        break;
    }
    return "Bad Request";
}

std::string refusal(HttpStatus status)
{
    const std::string reason = reasonOf(status);
    std::string text = "HTTP/1.1 " + std::to_string(static_cast<int>(status)) + " " + reason + "\r\n";
    for (const auto& [name, value] : guardingFields())
        text.append(name).append(": ").append(value).append("\r\n");
    if (status == HttpStatus::methodNotAllowed)
        text += "Allow: GET, HEAD\r\n";
    return text +
           "Content-Type: text/plain; charset=utf-8\r\nContent-Length: " + std::to_string(reason.size() + 1) +
           "\r\nConnection: close\r\n\r\n" + reason + "\n";
}

// The library's own options let a second server take the same port.
void setOptions(socket_t socket)
{
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

}  // namespace

// What it hands on to the library is a request line and a host, both judged: the library puts no limit on the
// number of fields, and would answer a field of many ranges with as many copies of the page.
class WebServer::Server : public httplib::Server
{
public:
    Server()
    {
        set_socket_options(setOptions);
        set_default_headers(guardingFields());
        set_idle_interval(0, idleLookUs);
        set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
            answer(request.path, response);
            return HandlerResponse::Handled;
        });
        new_task_queue = [this] {
            return new ConnectionQueue([this] {
                if (stopping_)
                    stop();
            });
        };
    }

    struct Page
    {
        std::string type;
        std::function<std::string()> body;
    };

    std::map<std::string, Page> pages_;
    bool onlyLocal_ = true;
    std::atomic<bool> stopping_{false};
    std::atomic<std::uint64_t> answered_{0};
    std::atomic<std::uint64_t> refused_{0};
    std::thread thread_;

private:
    bool process_and_close_socket(socket_t socket) override
    {
        WebConnection connection(socket, stopping_);
        try {
            serve(connection);
        } catch (const std::exception&) {
            return false;  // no memory: the client sees its connection end
        }
        return true;
    }

    void serve(WebConnection& connection)
    {
        if (ConnectionQueue::isOverload()) {
            ++refused_;
            connection.sendNow(refusal(HttpStatus::unavailable));
            return;
        }
        const std::optional<std::string> text = connection.readHead();
        if (!text) {
            ++refused_;
            return;
        }
        RequestHead head;
        head.status = HttpStatus::tooManyFields;
        if (text->ends_with("\r\n\r\n"))
            head = requestHeadIn(*text, onlyLocal_);
        if (head.status == HttpStatus::ok) {
            ++answered_;
            handOn(connection, head);
        } else {
            ++refused_;
            const std::string answer = refusal(head.status);
            connection.write(answer.data(), answer.size());
        }
        connection.finish();
    }

    void handOn(WebConnection& connection, const RequestHead& head)
    {
        connection.feed(head.method + " " + head.path + " HTTP/1.1\r\nHost: " + head.host + "\r\n\r\n");
        bool closed = false;
        process_request(connection, true, closed, [](httplib::Request&) {});
    }

    void answer(const std::string& path, httplib::Response& response) const
    {
        const auto page = pages_.find(path);
        response.status = page == pages_.end() ? 404 : 200;
        if (page == pages_.end())
            response.set_content("Not Found\n", "text/plain; charset=utf-8");
        else
            response.set_content(page->second.body(), page->second.type);
    }
};

WebServer::WebServer() : server_(std::make_unique<Server>()) {}

WebServer::~WebServer() { stop(); }

void WebServer::add(const std::string& path, const std::string& type, std::function<std::string()> body)
{
    server_->pages_[path] = {type, std::move(body)};
}

int WebServer::bind(const std::string& address, int port)
{
    server_->onlyLocal_ = isLoopback(address);
    if (port == 0) {
        const int taken = server_->bind_to_any_port(address);
        return taken > 0 ? taken : 0;
    }
    return server_->bind_to_port(address, port) ? port : 0;
}

void WebServer::start()
{
    server_->thread_ = std::thread([server = server_.get()] { server->listen_after_bind(); });
}

void WebServer::stop()
{
    server_->stopping_ = true;
    if (server_->thread_.joinable())
        server_->thread_.join();
}

std::uint64_t WebServer::answered() const { return server_->answered_; }

std::uint64_t WebServer::refused() const { return server_->refused_; }
