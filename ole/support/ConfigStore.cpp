#include "support/ConfigStore.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "support/SmallFile.h"
#include "support/UserFolders.h"

namespace {

using Entries = std::map<std::string, ConfigStore::Entry>;

constexpr std::size_t bytesMax = std::size_t{1} << 20;

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r\v\f";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

void report(const std::string& place, const char* what)
{
    std::fprintf(stderr, "fsys configuration: %s: %s\n", place.c_str(), what);
}

// The text of a file, or nothing and a report.
std::optional<std::string> readConfigFile(const std::string& path, ConfigStore::WhenMissing whenMissing)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found) {
        if (whenMissing == ConfigStore::WhenMissing::reported)
            report(path, "no such file");
        return std::nullopt;
    }
    if (!std::filesystem::is_regular_file(status)) {
        report(path, "not a file that can be read");
        return std::nullopt;
    }
    std::ifstream file(path, std::ios::binary);
    std::string text(bytesMax + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    const bool failed = !file.is_open() || file.bad();
    if (failed || text.size() > bytesMax) {
        report(path, failed ? "cannot be read" : "larger than 1 MiB");
        return std::nullopt;
    }
    return text;
}

// False for a line that is neither "key = value" nor empty.
bool addLine(Entries& entries, std::string_view line, const std::string& place)
{
    const std::string_view text = trimmed(line.substr(0, line.find('#')));
    if (text.empty())
        return true;
    const std::size_t equals = text.find('=');
    const std::string_view key = trimmed(text.substr(0, equals));
    if (equals == std::string_view::npos || key.empty())
        return false;
    const std::string_view value = trimmed(text.substr(equals + 1));
    entries.insert_or_assign(std::string(key), ConfigStore::Entry{std::string(value), place});
    return true;
}

}  // namespace

void ConfigStore::addFile(const std::string& path, WhenMissing whenMissing)
{
    if (path == "/dev/null")
        return;
    if (const std::optional<std::string> text = readConfigFile(path, whenMissing))
        addText(*text, path);
}

void ConfigStore::addText(std::string_view text, const std::string& name)
{
    constexpr int reportsMax = 20;  // a file of another kind must not flood the terminal
    if (text.find('\0') != std::string_view::npos)
        return report(name, "not a text file");
    Entries added;
    int number = 0;
    int reports = 0;
    for (const std::string_view line : splitLines(text)) {
        const std::string place = name + ':' + std::to_string(++number);
        if (!addLine(added, line, place) && ++reports <= reportsMax)
            report(place, "line is not \"key = value\"");
    }
    entries_.merge(added);
}

const ConfigStore::Entry* ConfigStore::find(const std::string& key) const
{
    const auto found = entries_.find(key);
    return found == entries_.end() ? nullptr : &found->second;
}

std::vector<std::string> defaultConfigFiles()
{
    std::vector<std::string> files;
    std::string ofUser = userFile("XDG_CONFIG_HOME", ".config", "fsys/fsys.conf");
    if (!ofUser.empty())
        files.push_back(std::move(ofUser));
    files.emplace_back("/etc/fsys.conf");
    return files;
}

std::optional<int> parseConfigValue(std::string_view text)
{
    text = trimmed(text);
    if (text.starts_with('+') && !text.starts_with("+-"))
        text.remove_prefix(1);  // from_chars knows no plus
    int value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

std::string quotedForReport(std::string_view text)
{
    constexpr std::size_t sizeMax = 60;
    std::string quoted = '\'' + std::string(text.substr(0, sizeMax)) + (text.size() > sizeMax ? "...'" : "'");
    std::replace_if(
        quoted.begin(), quoted.end(),
        [](char character) { return std::iscntrl(static_cast<unsigned char>(character)) != 0; }, '?');
    return quoted;
}
