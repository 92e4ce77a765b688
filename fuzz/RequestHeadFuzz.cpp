// Heads of HTTP requests, as anybody may send them: what is accepted is a plain path, a method that changes
// nothing and, where only this machine may ask, a name of this machine.

#include "Fuzz.h"

#include <algorithm>
#include <string>

#include "RequestHead.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(textOf(data, size));
    const RequestHead local = requestHeadIn(text, true);
    const RequestHead any = requestHeadIn(text, false);
    require(local.status != HttpStatus::ok || any.status == HttpStatus::ok, "fewer are accepted locally");
    for (const RequestHead& head : {local, any}) {
        if (head.status != HttpStatus::ok) {
            require(head.path.empty() && head.host.empty() && head.method.empty(), "nothing of a refused one stays");
            continue;
        }
        require(head.method == "GET" || head.method == "HEAD", "methods that change nothing");
        require(head.path.starts_with('/') && head.path.find('?') == std::string::npos, "a path");
        for (const std::string& part : {head.path, head.host})
            require(!part.empty() && std::all_of(part.begin(), part.end(), [](char c) { return c > ' ' && c < 127; }),
                    "one printable word, which ends no line");
    }
    require(local.status != HttpStatus::ok || isLocalHost(local.host), "a name of this machine");
    return 0;
}
