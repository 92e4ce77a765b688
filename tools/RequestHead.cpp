#include "RequestHead.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include <arpa/inet.h>

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::size_t targetBytesMax = 1024;

std::string_view takeLine(std::string_view& text)
{
    const std::size_t end = std::min(text.find(lineEnd), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + lineEnd.size(), text.size()));
    return line;
}

bool isNamed(std::string_view field, std::string_view name)
{
    return field.size() > name.size() && field[name.size()] == ':' &&
           std::equal(name.begin(), name.end(), field.begin(), [](char wanted, char sent) {
               return std::tolower(static_cast<unsigned char>(sent)) == wanted;
           });
}

std::string_view trimmed(std::string_view text)
{
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// The one field Host; none when it is missing, empty or there twice.
std::optional<std::string> hostIn(std::string_view fields)
{
    std::optional<std::string> host;
    while (!fields.empty()) {
        const std::string_view field = takeLine(fields);
        if (!isNamed(field, "host"))
            continue;
        if (host)
            return std::nullopt;
        host = trimmed(field.substr(5));
    }
    const auto isFit = [](char c) { return c > ' ' && c < 127; };
    return host && !host->empty() && std::all_of(host->begin(), host->end(), isFit) ? host : std::nullopt;
}

bool isPlainPath(std::string_view path)
{
    return path.starts_with('/') && std::all_of(path.begin(), path.end(), [](char c) {
               return c > ' ' && c < 127 && c != '%' && c != '\\' && c != '"' && c != '<' && c != '>';
           });
}

RequestHead refused(HttpStatus status)
{
    RequestHead head;
    head.status = status;
    return head;
}

}  // namespace

RequestHead requestHeadIn(std::string_view text, bool onlyLocal)
{
    const std::string_view line = takeLine(text);
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == last ||
        (line.substr(last + 1) != "HTTP/1.1" && line.substr(last + 1) != "HTTP/1.0"))
        return refused(HttpStatus::badRequest);
    const std::string_view method = line.substr(0, first);
    const std::string_view target = line.substr(first + 1, last - first - 1);
    if (method != "GET" && method != "HEAD")
        return refused(HttpStatus::methodNotAllowed);
    if (target.size() > targetBytesMax)
        return refused(HttpStatus::targetTooLong);
    const std::string_view path = target.substr(0, target.find('?'));
    const std::optional<std::string> host = hostIn(text);
    if (!isPlainPath(path) || !host)
        return refused(HttpStatus::badRequest);
    if (onlyLocal && !isLocalHost(*host))
        return refused(HttpStatus::misdirected);
    return {HttpStatus::ok, std::string(method), std::string(path), *host};
}

bool isLocalHost(std::string_view host)
{
    if (host.starts_with('['))
        return isLoopback(std::string(host.substr(1, std::min(host.find(']'), host.size()) - 1)));
    const std::string name(host.substr(0, host.find(':')));
    return name == "localhost" || (name.find(':') == std::string::npos && isLoopback(name));
}

bool isLoopback(const std::string& address)
{
    in_addr four = {};
    if (inet_pton(AF_INET, address.c_str(), &four) == 1)
        return (ntohl(four.s_addr) >> 24) == 127;
    in6_addr six = {};
    return inet_pton(AF_INET6, address.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
}
