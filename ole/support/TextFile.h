#pragma once

#include "Qz/LightweightString.h"
#include "support/Export.h"

#include <vector>

// TextFile: a small text file as a list of lines.
//
// Reading:    lines end with LF or CR LF; a line break at the end of the file makes no further line, a
//             byte order mark at its start is passed over. A file that is missing, is no regular file,
//             cannot be read, is larger than 16 MiB or holds nothing but zero bytes (a power cut leaves
//             such files) has no lines. One that is there and cannot be read is logged.
// Saving:     replaces the whole file, so that a crash or a full disk leaves the old file or the new one
//             (iFileManager::replaceFile). A file that is there but could not be loaded is not replaced:
//             its lines would be lost.
// Indices:    from 0; a line out of range is empty, removing one does nothing.
// Threads:    none of its own.
class SUPPORT_API TextFile
{
public:
    // Names the file; reads it when load is true.
    TextFile(const LightweightString<wchar_t>& path, bool load);

    // Lines, with those that were appended and without those that were removed.
    [[nodiscard]] unsigned getLineCount() const;
    // The line without its line break; null out of range.
    [[nodiscard]] LightweightString<char> getLine(unsigned index) const;
    // Adds a line behind the last one; in memory, as removeLine.
    void appendLine(const LightweightString<char>& line);
    // Takes a line out; those behind it move up.
    void removeLine(unsigned index);
    // Style 2 ends each line with CR LF, any other with LF. A line that holds a line break itself is
    // written as it is and comes back as several. False when the file could not be written; the old
    // one is then untouched.
    bool save(int endOfLineStyle) const;

private:
    LightweightString<wchar_t> path_;
    std::vector<LightweightString<char>> lines_;
    bool unreadable_ = false;  // there, asked for, and not loaded
};
