#pragma once

#include <string>
#include <string_view>

// RequestHead: what an HTTP request asks for, judged before anything else sees it.
//
// Whatever is refused is refused from the text alone: every method that could change something, every target
// that is no plain path, and every request for another name than those of this machine itself, where nobody
// else may ask (a page of a stranger can point a name of its own at this machine).

enum class HttpStatus {
    ok = 200,
    badRequest = 400,
    misdirected = 421,
    methodNotAllowed = 405,
    targetTooLong = 414,
    tooManyFields = 431,
    unavailable = 503,
};

struct RequestHead
{
    HttpStatus status = HttpStatus::ok;  // anything else: refused, and the rest is empty
    std::string method;                  // "GET" or "HEAD"
    std::string path;                    // without query; printable, begins with a slash
    std::string host;                    // as sent
};

// text: request line and fields up to and with the empty line. onlyLocal: no names but those of this machine.
[[nodiscard]] RequestHead requestHeadIn(std::string_view text, bool onlyLocal);

// "localhost" and addresses of the loopback, with or without a port.
[[nodiscard]] bool isLocalHost(std::string_view host);
// An address of the loopback as text: 127.x.x.x or ::1.
[[nodiscard]] bool isLoopback(const std::string& address);
