#include "os/linux/SambaText.h"

#include <algorithm>
#include <array>

namespace os {

namespace {

using namespace std::string_view_literals;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string lowerCase(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

std::string withoutBlanks(std::string text)
{
    std::erase_if(text, isBlank);
    return text;
}

std::string_view unquoted(std::string_view text)
{
    const bool quoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
    return quoted ? text.substr(1, text.size() - 2) : text;
}

SambaLine parseLine(std::string_view line)
{
    SambaLine result;
    if (line.front() == '[') {
        const std::size_t end = line.find(']');
        if (end == std::string_view::npos || trimmed(line.substr(1, end - 1)).empty())
            return result;
        result.kind = SambaLine::Kind::section;
        result.label = trimmed(line.substr(1, end - 1));
        result.name = lowerCase(result.label);
        return result;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || trimmed(line.substr(0, equals)).empty())
        return result;
    result.kind = SambaLine::Kind::setting;
    result.name = withoutBlanks(lowerCase(line.substr(0, equals)));
    result.value = unquoted(trimmed(line.substr(equals + 1)));
    return result;
}

// Takes the next whole line off text, with the lines that continue it.
std::string takeLine(std::string_view& text)
{
    std::string whole;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        const bool continues = line.ends_with('\\');
        whole += continues ? line.substr(0, line.size() - 1) : line;
        if (!continues)
            break;
    }
    return whole;
}

template <class Words>
bool isOneOf(std::string_view value, const Words& words)
{
    return std::find(words.begin(), words.end(), lowerCase(value)) != words.end();
}

}  // namespace

std::vector<SambaLine> parseSambaText(std::string_view text)
{
    std::vector<SambaLine> lines;
    while (!text.empty()) {
        const std::string whole = takeLine(text);
        const std::string_view line = trimmed(whole);
        if (!line.empty() && line.front() != '#' && line.front() != ';')
            lines.push_back(parseLine(line));
    }
    return lines;
}

bool isYes(std::string_view value) { return isOneOf(value, std::array{"yes"sv, "true"sv, "on"sv, "1"sv}); }

bool isNo(std::string_view value) { return isOneOf(value, std::array{"no"sv, "false"sv, "off"sv, "0"sv}); }

}  // namespace os
