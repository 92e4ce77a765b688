#include "TerminalKeys.h"

#include <string_view>

namespace {

constexpr char escape = 27;
constexpr std::size_t sequenceMax = 32;  // longer ones are none that a keyboard sends

// Bytes of the key at the front; 0 when more have to arrive.
std::size_t keyLength(std::string_view bytes)
{
    if (bytes[0] != escape)
        return 1;
    if (bytes.size() == 1)
        return 0;
    if (bytes[1] != '[' && bytes[1] != 'O')
        return 1;
    for (std::size_t i = 2; i < bytes.size(); ++i)
        if (bytes[i] >= '@' && bytes[i] <= '~')
            return i + 1;
    return bytes.size() < sequenceMax ? 0 : bytes.size();
}

TerminalKey keyOf(std::string_view key)
{
    if (key == "\033[A" || key == "\033OA" || key == "k")
        return TerminalKey::up;
    if (key == "\033[B" || key == "\033OB" || key == "j")
        return TerminalKey::down;
    // Ctrl-C and Ctrl-\ come as bytes: they are no signals while the display has the terminal.
    return key == "q" || key == "Q" || key == "\003" || key == "\034" ? TerminalKey::quit : TerminalKey::none;
}

}  // namespace

TerminalKey takeKey(std::string& bytes)
{
    while (!bytes.empty()) {
        const std::size_t length = keyLength(bytes);
        if (length == 0)
            break;
        const TerminalKey key = keyOf(std::string_view(bytes).substr(0, length));
        bytes.erase(0, length);
        if (key != TerminalKey::none)
            return key;
    }
    return TerminalKey::none;
}
