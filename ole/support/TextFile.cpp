#include "support/TextFile.h"

#include <cstddef>
#include <string>

#include "Qz/Utf8.h"
#include "os/LastError.h"
#include "os/OS.h"
#include "support/Log.h"
#include "support/SmallFile.h"

TextFile::TextFile(const LightweightString<wchar_t>& path, bool load) : path_(path)
{
    if (!load)
        return;
    std::string contents;
    unreadable_ = loadSmallFile(path_, contents) == LoadResult::unreadable;
    if (unreadable_)
        Log("%s could not be read: %s\n", toUTF8(path_).c_str(), errorText(lastError()).c_str());
    for (const std::string_view line : splitLines(contents))
        lines_.emplace_back(line);
}

unsigned TextFile::getLineCount() const { return static_cast<unsigned>(lines_.size()); }

LightweightString<char> TextFile::getLine(unsigned index) const
{
    return index < lines_.size() ? lines_[index] : LightweightString<char>();
}

void TextFile::appendLine(const LightweightString<char>& line) { lines_.push_back(line); }

void TextFile::removeLine(unsigned index)
{
    if (index < lines_.size())
        lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(index));
}

bool TextFile::save(int endOfLineStyle) const
{
    if (unreadable_)
        return false;
    const std::string_view lineBreak = endOfLineStyle == 2 ? "\r\n" : "\n";
    std::string contents;
    for (const LightweightString<char>& line : lines_) {
        contents += line.view();
        contents += lineBreak;
    }
    return OS()->getFileManager()->replaceFile(path_, contents);
}
