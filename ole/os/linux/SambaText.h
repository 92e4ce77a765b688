#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace os {

// SambaText: the line format of Samba's configuration files, and of the files of user shares, which is
// the same without sections.

struct SambaLine
{
    enum class Kind { section, setting, malformed };
    Kind kind = Kind::malformed;
    std::string name;   // section: lower case; setting: lower case without blanks
    std::string label;  // section: as written
    std::string value;  // setting: without blanks and quotes around it
};

// The lines that say something: neither empty nor comments ('#' or ';'). A line that ends with a
// backslash goes on in the next.
[[nodiscard]] std::vector<SambaLine> parseSambaText(std::string_view text);
// "yes", "true", "on" and "1" in any case.
[[nodiscard]] bool isYes(std::string_view value);
// "no", "false", "off" and "0" in any case.
[[nodiscard]] bool isNo(std::string_view value);

}  // namespace os
