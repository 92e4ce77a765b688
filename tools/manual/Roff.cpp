#include "Roff.h"

namespace {

// What formatters would print as something else, or take for a command.
std::string escaped(char letter, bool isCode)
{
    switch (letter) {
    case '\\':
        return "\\(rs";
    case '\'':
        return "\\(aq";
    case '"':
        return "\\(dq";
    case '`':
        return "\\(ga";
    case '^':
        return "\\(ha";
    case '~':
        return "\\(ti";
    case '-':
        return isCode ? "\\-" : "-";
    default:
        return {letter};
    }
}

std::string escapedText(const std::string& text, bool isCode)
{
    std::string out;
    for (const char letter : text)
        out += escaped(letter, isCode);
    // A line that begins with one of these is a command; the others that could be are escaped already.
    return out.starts_with('.') ? "\\&" + out : out;
}

// Letters of an option behind its dashes: "--proxy-of" of "--proxy-of."
std::size_t optionLength(const std::string& text, std::size_t from)
{
    std::size_t length = 2;
    while (from + length < text.size() && ((text[from + length] >= 'a' && text[from + length] <= 'z') ||
                                           (text[from + length] == '-' && from + length + 1 < text.size() &&
                                            text[from + length + 1] >= 'a')))
        ++length;
    return length;
}

}  // namespace

std::string roff(const std::string& text) { return escapedText(text, true); }

std::string roffProse(const std::string& text)
{
    std::string out;
    std::size_t done = 0;
    for (std::size_t at = text.find("--"); at != std::string::npos; at = text.find("--", done)) {
        const std::size_t length = optionLength(text, at);
        out += escapedText(text.substr(done, at - done), false) + bold(text.substr(at, length));
        done = at + length;
    }
    out += escapedText(text.substr(done), false);
    return out;
}

std::string bold(const std::string& text) { return "\\fB" + roff(text) + "\\fR"; }

std::string italic(const std::string& text) { return "\\fI" + roff(text) + "\\fR"; }
