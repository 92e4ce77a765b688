// Text files as lists of lines: what is read, appended, removed and saved is what is read again, and a file
// that is no text has no lines.

#include "Fuzz.h"

#include <algorithm>
#include <string>

#include "Qz/AttribValuePair.h"
#include "os/testing/FakeOS.h"
#include "support/TextFile.h"

namespace {

const LightweightString<wchar_t> file = L"/list.txt";

using Lines = std::vector<std::string>;

Lines linesOf(const TextFile& text)
{
    Lines lines;
    for (unsigned i = 0; i < text.getLineCount(); ++i)
        lines.push_back(text.getLine(i).str());
    return lines;
}

// Where each line ends is told by LF alone; CR before it and a mark of byte order at the start are dropped.
Lines expectedFrom(std::string_view bytes)
{
    Lines lines;
    if (std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte == '\0'; }))
        return lines;
    if (bytes.starts_with("\xEF\xBB\xBF"))
        bytes.remove_prefix(3);
    std::string line;
    for (const char byte : bytes) {
        if (byte != '\n') {
            line += byte;
            continue;
        }
        lines.push_back(line.ends_with('\r') ? line.substr(0, line.size() - 1) : line);
        line.clear();
    }
    if (!line.empty())
        lines.push_back(line.ends_with('\r') ? line.substr(0, line.size() - 1) : line);
    return lines;
}

// Saved and read, all lines come back but for what is dropped at their ends and at the start.
bool survivesSaving(const Lines& lines)
{
    const bool endsWell = std::none_of(lines.begin(), lines.end(),
                                       [](const std::string& line) { return line.ends_with('\r'); });
    return !lines.empty() && endsWell && !lines.front().starts_with("\xEF\xBB\xBF");
}

void checkPair(const std::string& line)
{
    const Qz::AttribValuePair pair(line, '=');
    require(pair.isValid() == (line.find('=') != std::string::npos && line.front() != '='),
            "a pair has a name");
    require(!pair.isValid() || pair.asString().view() == line, "a pair is its line");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static FakeOS os;
    static const ScopedOS installed(os);
    const std::string_view bytes = textOf(data, size);
    os.files().addFile(file, bytes);
    TextFile text(file, true);
    Lines lines = linesOf(text);
    require(lines == expectedFrom(bytes), "lines are what lies between line feeds");
    if (!lines.empty())
        checkPair(lines.front());

    text.appendLine(LightweightString<char>("appended"));
    lines.emplace_back("appended");
    if (size % 4 == 0) {
        text.removeLine(0);
        lines.erase(lines.begin());
    }
    require(text.save(size % 2 != 0 ? 2 : 1), "a list is saved");
    require(!survivesSaving(lines) || linesOf(TextFile(file, true)) == lines, "what was saved is read");
    os.log().clear();
    return 0;
}
