#include "support/PreferenceStore.h"

#include <algorithm>
#include <utility>

#include "Qz/Utf8.h"
#include "os/OS.h"
#include "support/PathHelpers.h"
#include "support/SmallFile.h"
#include "support/TextFile.h"

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

std::string escaped(std::string_view text)
{
    std::string result;
    for (const char character : text) {
        if (character == '\n') {
            result += "\\n";
        } else if (character == '\r') {
            result += "\\r";
        } else {
            if (character == '\\' || character == '=')
                result += '\\';
            result += character;
        }
    }
    return result;
}

// Without escapes; nothing when one of them is not ours.
std::optional<std::string> unescaped(std::string_view text)
{
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        char character = text[at];
        if (character == '\\') {
            if (++at == text.size())
                return std::nullopt;
            character = text[at];
            if (std::string_view("\\=#nr\xEF").find(character) == std::string_view::npos)
                return std::nullopt;
            character = character == 'n' ? '\n' : character == 'r' ? '\r' : character;
        }
        result += character;
    }
    return result;
}

// The first '=' that no backslash stands before.
std::size_t findSeparator(std::string_view line)
{
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (line[at] == '\\')
            ++at;
        else if (line[at] == '=')
            return at;
    }
    return std::string_view::npos;
}

// Makes folder and those above it that are missing.
void createFolders(const LightweightString<wchar_t>& folder)
{
    iFileManager* files = OS()->getFileManager();
    for (std::size_t end = folder.find(L'/', 1); end != folder.npos; end = folder.find(L'/', end + 1)) {
        const LightweightString<wchar_t> level = folder.substr(0, end);
        if (!files->directoryExists(level))
            files->createDirectory(level);
    }
}

}  // namespace

PreferenceStore::PreferenceStore(const LightweightString<wchar_t>& path) : path_(path)
{
    std::string contents;
    unreadable_ = loadSmallFile(path_, contents) == LoadResult::unreadable;
    if (unreadable_)
        complaints_.emplace_back("cannot be read; changes will not be saved");
    std::size_t number = 0;
    for (const std::string_view line : splitLines(contents))
        addLine(line, ++number);
}

void PreferenceStore::addLine(std::string_view text, std::size_t number)
{
    const std::size_t separator = findSeparator(text);
    std::optional<std::string> key = unescaped(text.substr(0, separator));
    std::optional<std::string> value;
    if (separator != std::string_view::npos && !text.starts_with('#'))
        value = unescaped(text.substr(separator + 1));
    if (key && value) {
        if (const std::size_t same = locate(*key); same < lines_.size())
            lines_[same].text = std::move(*value);  // of several lines for one key the last holds
        else
            lines_.push_back({std::move(key), std::move(*value)});
        return;
    }
    if (!text.empty() && !text.starts_with('#'))
        complaints_.push_back("line " + std::to_string(number) + " is not understood");
    lines_.push_back({std::nullopt, std::string(text)});
}

std::size_t PreferenceStore::locate(std::string_view key) const
{
    const auto found = std::find_if(lines_.begin(), lines_.end(),
                                    [key](const Line& line) { return line.key && *line.key == key; });
    return static_cast<std::size_t>(found - lines_.begin());
}

const std::string* PreferenceStore::find(std::string_view key) const
{
    const std::size_t at = locate(key);
    return at < lines_.size() ? &lines_[at].text : nullptr;
}

bool PreferenceStore::set(std::string_view key, std::string_view value)
{
    const std::size_t at = locate(key);
    if (at == lines_.size()) {
        lines_.push_back({std::string(key), std::string(value)});
        unsaved_ = true;
    } else if (lines_[at].text != value) {
        lines_[at].text = value;
        unsaved_ = true;
    }
    return save();
}

bool PreferenceStore::remove(std::string_view key)
{
    const std::size_t at = locate(key);
    if (at < lines_.size()) {
        lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(at));
        unsaved_ = true;
    }
    return save();
}

bool PreferenceStore::save()
{
    if (!unsaved_)
        return true;
    if (unreadable_)
        return false;
    TextFile file(path_, false);
    for (const Line& line : lines_) {
        if (!line.key) {
            file.appendLine(line.text);
            continue;
        }
        const std::string text = escaped(*line.key) + '=' + escaped(line.text);
        // What begins so would be a comment, or taken for the mark at the start of the file.
        const bool isMistaken = text.starts_with('#') || text.starts_with(byteOrderMark);
        file.appendLine(isMistaken ? '\\' + text : text);
    }
    createFolders(getPath(path_));
    unsaved_ = !file.save(1);
    return !unsaved_;
}
