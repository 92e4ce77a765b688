#include "support/FormatText.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string_view>

#include "Qz/Utf8.h"

namespace {

// printf's own "%ls" goes through the locale and fails for all but ASCII in the "C" locale, so directives
// are taken apart here; numbers are then left to snprintf, one by one.
class Formatter
{
public:
    Formatter(const char* format, std::va_list arguments) : at_(format) { va_copy(arguments_, arguments); }
    ~Formatter() { va_end(arguments_); }
    Formatter(const Formatter&) = delete;
    Formatter& operator=(const Formatter&) = delete;

    std::string run()
    {
        while (*at_) {
            const std::size_t plain = std::strcspn(at_, "%");
            text_.append(at_, plain);
            at_ += plain;
            if (*at_ && !takeDirective()) {
                text_ += at_;  // the types of what follows are not known
                break;
            }
        }
        return std::move(text_);
    }

private:
    // %[flags][width][.precision][length]conversion
    struct Directive
    {
        std::string flags;
        int width = -1;      // none: negative
        int precision = -1;  // none: negative
        std::string_view length;
        char conversion = 0;

        // For snprintf, with a length that fits the value handed over.
        [[nodiscard]] std::string formatFor(const char* withLength) const
        {
            std::string result = '%' + flags;
            if (width >= 0)
                result += std::to_string(width);
            if (precision >= 0)
                result += '.' + std::to_string(precision);
            return result + withLength + conversion;
        }
    };

    bool takeDirective()
    {
        const char* next = at_ + 1;
        Directive directive;
        const std::size_t flags = std::strspn(next, "-+ #0'");
        directive.flags.assign(next, flags);
        next += flags;
        takeWidth(next, directive);
        if (*next == '.')
            directive.precision = takeNumber(++next);
        const std::size_t length = std::strspn(next, "hljztL");
        directive.length = std::string_view(next, length);
        next += length;
        directive.conversion = *next;
        if (!write(directive))
            return false;
        at_ = next + 1;
        return true;
    }

    void takeWidth(const char*& next, Directive& directive)
    {
        if (*next != '*' && (*next < '0' || *next > '9'))
            return;
        const int width = std::clamp(takeNumber(next), -numberMax_, numberMax_);
        directive.width = width < 0 ? -width : width;
        if (width < 0)
            directive.flags += '-';
    }

    // Digits (none are 0), or an argument in their place.
    int takeNumber(const char*& next)
    {
        if (*next == '*') {
            ++next;
            return va_arg(arguments_, int);
        }
        int number = 0;
        for (; *next >= '0' && *next <= '9'; ++next)
            number = std::min(number * 10 + (*next - '0'), numberMax_);
        return number;
    }

    bool write(const Directive& directive)
    {
        switch (directive.conversion) {
        case '%':
            text_ += '%';
            return true;
        case 'd':
        case 'i':
            return writeSigned(directive);
        case 'u':
        case 'o':
        case 'x':
        case 'X':
            return writeUnsigned(directive);
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            return writeReal(directive);
        case 'p':
            writeWith(directive.formatFor(""), va_arg(arguments_, void*));
            return true;
        case 'c':
            return writeCharacter(directive);
        case 's':
            return writeString(directive);
        default:
            return false;
        }
    }

    bool writeSigned(const Directive& directive)
    {
        long long value = 0;
        if (directive.length.empty())
            value = va_arg(arguments_, int);
        else if (directive.length == "hh")
            value = static_cast<signed char>(va_arg(arguments_, int));
        else if (directive.length == "h")
            value = static_cast<short>(va_arg(arguments_, int));
        else if (directive.length == "l")
            value = va_arg(arguments_, long);
        else if (directive.length == "ll")
            value = va_arg(arguments_, long long);
        else if (directive.length == "j")
            value = va_arg(arguments_, std::intmax_t);
        else if (directive.length == "z" || directive.length == "t")
            value = va_arg(arguments_, std::ptrdiff_t);
        else
            return false;
        writeWith(directive.formatFor("ll"), value);
        return true;
    }

    bool writeUnsigned(const Directive& directive)
    {
        unsigned long long value = 0;
        if (directive.length.empty())
            value = va_arg(arguments_, unsigned);
        else if (directive.length == "hh")
            value = static_cast<unsigned char>(va_arg(arguments_, unsigned));
        else if (directive.length == "h")
            value = static_cast<unsigned short>(va_arg(arguments_, unsigned));
        else if (directive.length == "l")
            value = va_arg(arguments_, unsigned long);
        else if (directive.length == "ll")
            value = va_arg(arguments_, unsigned long long);
        else if (directive.length == "j")
            value = va_arg(arguments_, std::uintmax_t);
        else if (directive.length == "z" || directive.length == "t")
            value = va_arg(arguments_, std::size_t);
        else
            return false;
        writeWith(directive.formatFor("ll"), value);
        return true;
    }

    bool writeReal(const Directive& directive)
    {
        if (directive.length == "L")
            writeWith(directive.formatFor("L"), va_arg(arguments_, long double));
        else if (directive.length.empty() || directive.length == "l")
            writeWith(directive.formatFor(""), va_arg(arguments_, double));
        else
            return false;
        return true;
    }

    bool writeCharacter(const Directive& directive)
    {
        if (directive.length == "l") {
            const wchar_t character = static_cast<wchar_t>(va_arg(arguments_, std::wint_t));
            writePadded(directive, toUTF8(std::wstring_view(&character, 1)).view());
            return true;
        }
        if (!directive.length.empty())
            return false;
        const char character = static_cast<char>(va_arg(arguments_, int));
        writePadded(directive, std::string_view(&character, 1));
        return true;
    }

    bool writeString(const Directive& directive)
    {
        if (directive.length == "l")
            writeWide(directive, va_arg(arguments_, const wchar_t*));
        else if (directive.length.empty())
            writeNarrow(directive, va_arg(arguments_, const char*));
        else
            return false;
        return true;
    }

    // With a precision no terminating zero is needed: nothing behind the last character asked for is read.
    template <class CharT>
    static std::size_t sizeWithin(const CharT* text, int precision)
    {
        std::size_t size = 0;
        while ((precision < 0 || size < static_cast<std::size_t>(precision)) && text[size] != CharT(0))
            ++size;
        return size;
    }

    void writeNarrow(const Directive& directive, const char* text)
    {
        text = text ? text : "(null)";
        writePadded(directive, std::string_view(text, sizeWithin(text, directive.precision)));
    }

    void writeWide(const Directive& directive, const wchar_t* text)
    {
        text = text ? text : L"(null)";
        const auto bytes = toUTF8(std::wstring_view(text, sizeWithin(text, directive.precision)));
        std::string_view shown = bytes.view();
        if (directive.precision >= 0 && shown.size() > static_cast<std::size_t>(directive.precision)) {
            std::size_t end = static_cast<std::size_t>(directive.precision);
            while (end > 0 && (static_cast<unsigned char>(shown[end]) & 0xC0) == 0x80)
                --end;
            shown = shown.substr(0, end);
        }
        writePadded(directive, shown);
    }

    void writePadded(const Directive& directive, std::string_view shown)
    {
        const std::size_t width = directive.width < 0 ? 0 : static_cast<std::size_t>(directive.width);
        const std::string padding(width - std::min(width, shown.size()), ' ');
        const bool left = directive.flags.find('-') != std::string::npos;
        text_ += left ? std::string() : padding;
        text_ += shown;
        text_ += left ? padding : std::string();
    }

// The format was built here from the directive, for a value of exactly this type.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    template <class T>
    void writeWith(const std::string& format, T value)
    {
        const int size = std::snprintf(nullptr, 0, format.c_str(), value);
        if (size <= 0)
            return;
        const std::size_t before = text_.size();
        text_.resize(before + static_cast<std::size_t>(size) + 1);
        std::snprintf(text_.data() + before, static_cast<std::size_t>(size) + 1, format.c_str(), value);
        text_.pop_back();
    }
#pragma GCC diagnostic pop

    static constexpr int numberMax_ = 1000000;  // a width or precision in digits; more is a mistake

    const char* at_;  // the part of the format that is not written yet
    std::va_list arguments_;
    std::string text_;
};

}  // namespace

std::string formatText(const char* format, std::va_list arguments)
{
    return Formatter(format, arguments).run();
}
