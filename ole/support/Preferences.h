#pragma once

#include "Qz/LightweightString.h"
#include "support/Export.h"

// EditorPreferences: what the user chose, by name, kept from run to run.
//
// File:       FSYS_PREFS names it; without that ${XDG_CONFIG_HOME:-~/.config}/fsys/preferences. UTF-8,
//             one "key=value" per line; '\', '=', line breaks (as \n and \r) and a '#' that begins the
//             line are written with a backslash. Read at the first use, replaced as a whole at each change,
//             its folder made when needed.
// Errors:     a line that is not understood is reported in the log, passed over and kept by every save, as
//             empty lines and comments (#) are. A file that is there but cannot be read is never replaced.
// Threads:    any.
class SUPPORT_API EditorPreferences
{
public:
    // The value of key, or defaultValue when there is none. A value may be the empty string.
    [[nodiscard]] LightweightString<wchar_t>
    getPreference(const LightweightString<char>& key, const LightweightString<wchar_t>& defaultValue) const;
    // False when the change could not be saved; it holds for this process all the same, and the next
    // change saves it with its own.
    bool setPreference(const LightweightString<char>& key, const LightweightString<wchar_t>& value);
    // Takes away the value of key, which may have none. Saves as setPreference does, with the same result.
    bool removePreference(const LightweightString<char>& key);

    EditorPreferences(const EditorPreferences&) = delete;
    EditorPreferences& operator=(const EditorPreferences&) = delete;

private:
    friend SUPPORT_API EditorPreferences& prefs();
    EditorPreferences() = default;
};

// The preferences of this process; usable before main and until the end of the process.
[[nodiscard]] SUPPORT_API EditorPreferences& prefs();
