#pragma once

#include <string>

// TerminalKeys: what the bytes of a terminal's keyboard mean. Several keys may arrive in one read, and one
// key in several.

enum class TerminalKey { none, quit, up, down };

// Takes bytes off the front up to and with the first key that means something. None, when there is none; the
// beginning of a key that has not arrived whole stays.
[[nodiscard]] TerminalKey takeKey(std::string& bytes);
