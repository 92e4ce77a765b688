#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// ConfigStore: what the configuration files say, as texts.
//
// Threads:    none of its own; const operations from any.
// Errors:     all reports go to standard error.
class ConfigStore
{
public:
    struct Entry
    {
        std::string value;
        std::string place;  // "FILE:LINE"
    };
    enum class WhenMissing { silent, reported };

    // Adds what a file says about keys that no file before it has. Reads regular files only, so that a
    // pipe or a device in the file's place cannot stop the process; /dev/null is an empty file.
    void addFile(const std::string& path, WhenMissing whenMissing);
    // Adds what the text of a file says about keys that no file before it has; name is the file's, for
    // reports.
    void addText(std::string_view text, const std::string& name);
    // Null when no file has the key.
    [[nodiscard]] const Entry* find(const std::string& key) const;

private:
    std::map<std::string, Entry> entries_;
};

// Files that are asked when FSYS_CONFIG is not set, the one that wins first.
[[nodiscard]] std::vector<std::string> defaultConfigFiles();
// An optional sign, then decimal digits, in the range of int, blanks around it; nothing else is a value.
[[nodiscard]] std::optional<int> parseConfigValue(std::string_view text);
// text for a report: shortened, without control characters.
[[nodiscard]] std::string quotedForReport(std::string_view text);
