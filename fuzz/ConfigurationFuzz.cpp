// The configuration file: each key has the value of its last line, and only whole numbers are values.

#include "Fuzz.h"

#include <cerrno>
#include <climits>
#include <map>
#include <string>

#include "support/ConfigStore.h"
#include "support/SmallFile.h"

namespace {

std::string withoutBlanksAround(std::string text)
{
    constexpr const char* blanks = " \t\r\v\f";
    text.erase(0, std::min(text.find_first_not_of(blanks), text.size()));
    text.erase(text.find_last_not_of(blanks) + 1);
    return text;
}

std::map<std::string, std::string> expectedFrom(std::string_view text)
{
    std::map<std::string, std::string> values;
    for (const std::string_view whole : splitLines(text)) {
        const std::string line(whole.substr(0, whole.find('#')));
        const std::size_t equals = line.find('=');
        const std::string key = withoutBlanksAround(line.substr(0, equals));
        if (equals != std::string::npos && !key.empty())
            values[key] = withoutBlanksAround(line.substr(equals + 1));
    }
    return values;
}

void checkValue(const std::string& text)
{
    const std::optional<int> value = parseConfigValue(text);
    errno = 0;
    char* end = nullptr;
    const long number = std::strtol(text.c_str(), &end, 10);
    const bool isWhole = !text.empty() && end == text.c_str() + text.size() && errno == 0;
    const bool isInt = isWhole && number >= INT_MIN && number <= INT_MAX;
    require(value.has_value() == isInt, "a whole number in range is a value, nothing else");
    require(!value || *value == number, "a value is its number");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text = textOf(data, size);
    ConfigStore store;
    store.addText(text, "file");
    const std::map<std::string, std::string> expected =
        text.find('\0') == std::string_view::npos ? expectedFrom(text) : std::map<std::string, std::string>();
    for (const auto& [key, value] : expected) {
        const ConfigStore::Entry* const entry = store.find(key);
        require(entry && entry->value == value, "a key has the value of its last line");
        checkValue(value);
    }
    const std::string quoted = quotedForReport(text);
    require(quoted.size() <= 65, "a quote is short");
    for (const char character : quoted)
        require(static_cast<unsigned char>(character) >= ' ' && character != 0x7F,
                "a quote has no control characters");
    return 0;
}
