#pragma once

#include <string>

// Roff: text in the language of manual pages (man(7)), for every formatter that reads it.

// text as it is: no letter of it is taken for a command, and options can be copied from the page.
[[nodiscard]] std::string roff(const std::string& text);
// The same for running text: options stand out, and hyphens of words are no minus signs.
[[nodiscard]] std::string roffProse(const std::string& text);
[[nodiscard]] std::string bold(const std::string& text);
[[nodiscard]] std::string italic(const std::string& text);
