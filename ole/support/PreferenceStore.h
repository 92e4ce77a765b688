#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Qz/LightweightString.h"

// PreferenceStore: the preferences file in memory, line by line, in its own order.
//
// Threads:    none of its own.
class PreferenceStore
{
public:
    explicit PreferenceStore(const LightweightString<wchar_t>& path);

    // What loading found wrong, one text each, for the log.
    [[nodiscard]] const std::vector<std::string>& complaints() const { return complaints_; }
    // Null when there is none. Values are UTF-8.
    [[nodiscard]] const std::string* find(std::string_view key) const;
    // Both save when something is to be saved; false when that failed.
    bool set(std::string_view key, std::string_view value);
    bool remove(std::string_view key);

private:
    // A line that is no preference (comment, empty, not understood) has no key and is kept as it stands.
    struct Line
    {
        std::optional<std::string> key;
        std::string text;  // the value, without escapes, or the line
    };

    void addLine(std::string_view text, std::size_t number);
    // Index of the line of key; the number of lines when there is none.
    [[nodiscard]] std::size_t locate(std::string_view key) const;
    bool save();

    LightweightString<wchar_t> path_;
    std::vector<Line> lines_;
    std::vector<std::string> complaints_;
    bool unreadable_ = false;  // the file holds what was never read; it must not be replaced
    bool unsaved_ = false;
};
