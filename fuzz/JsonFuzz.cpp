// What the command prints with --json: one line that parses, whatever the names in it, and gives back those
// that are text.

#include "Fuzz.h"

#include <algorithm>
#include <string>

#include "Answer.h"

namespace {

bool isText(const LightweightString<wchar_t>& name)
{
    const std::wstring_view characters = name.view();
    return std::none_of(characters.begin(), characters.end(),
                        [](wchar_t code) { return code >= 0xDC80 && code <= 0xDCFF; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(textOf(data, size));
    // A name comes from the disk, is wide in memory and goes out as UTF-8.
    const LightweightString<wchar_t> name = fromUTF8(bytes);
    const std::string line =
        jsonLine({{"path", utf8(name)}, {"bytes", size}, {bytes, bytes}, {"all", {utf8(name), bytes}}});
    require(std::none_of(line.begin(), line.end(),
                         [](char byte) { return static_cast<unsigned char>(byte) < ' '; }),
            "one line without control characters");
    const Json read = Json::parse(line, nullptr, false);
    require(read.is_object() && read.contains("path") && read["path"].is_string(), "it parses");
    const auto path = read["path"].get<std::string>();
    require(isText(fromUTF8(path)), "what is printed is UTF-8");
    require(!isText(name) || bytes == "path" || path == bytes, "a name that is text comes back");
    require(isText(name) || bytes == "path" || path.find("\xEF\xBF\xBD") != std::string::npos,
            "another shows where it is none");
    return 0;
}
