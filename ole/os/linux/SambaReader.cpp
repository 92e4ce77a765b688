#include "os/linux/SambaReader.h"

#include "os/linux/DebugLine.h"
#include "os/linux/PathText.h"

#include <algorithm>
#include <array>

namespace os {

namespace {

constexpr unsigned configFilesMax = 100;  // ends includes that name each other

bool hasVariable(std::string_view text) { return text.find('%') != std::string_view::npos; }

std::string withSeparator(std::string_view folder)
{
    const std::string tidy = tidyPath(folder);
    return tidy == "/" ? tidy : tidy + '/';
}

}  // namespace

void SambaReader::readFile(const std::string& file)
{
    if (++files_ > configFilesMax) {
        debugLine(file + ": too many included files");
        return;
    }
    const std::optional<std::string> text = load_(file);
    if (!text)
        return;
    open_.push_back(file);
    for (const SambaLine& line : parseSambaText(*text))
        take(line, file);
    open_.pop_back();
}

std::vector<SambaShare> SambaReader::shares() const
{
    std::vector<SambaShare> result;
    for (const Section& section : sections_)
        if (isShare(section))
            result.push_back({section.label, withSeparator(section.folder)});
    return result;
}

void SambaReader::take(const SambaLine& line, const std::string& file)
{
    if (line.kind == SambaLine::Kind::section)
        section_ = indexOf(line);
    else if (line.kind == SambaLine::Kind::malformed)
        debugLine(file + ": a line is neither a section nor a setting");
    else if (line.name == "include")
        include(line.value, file);
    else
        set(line);
}

// A section may be spread over several places.
std::size_t SambaReader::indexOf(const SambaLine& line)
{
    const auto found = std::find_if(sections_.begin(), sections_.end(),
                                    [&](const Section& section) { return section.name == line.name; });
    if (found != sections_.end())
        return static_cast<std::size_t>(found - sections_.begin());
    sections_.push_back({line.name, line.label, {}, true, false});
    return sections_.size() - 1;
}

// An included file goes on in the section that includes it.
void SambaReader::include(const std::string& value, const std::string& from)
{
    if (hasVariable(value) || value == "registry") {
        debugLine(from + ": include = " + value + " is not followed");
        return;
    }
    const std::string file = value.starts_with('/') ? value : splitPath(from).folder + value;
    if (std::find(open_.begin(), open_.end(), file) != open_.end()) {
        debugLine(file + ": includes itself");
        return;
    }
    readFile(file);
}

void SambaReader::set(const SambaLine& line)
{
    Section& section = sections_[section_];
    if (line.name == "path" || line.name == "directory")
        section.folder = line.value;
    else if (line.name == "available")
        section.available = !isNo(line.value);
    else if (line.name == "printable" || line.name == "printok")
        section.printer = isYes(line.value);
    else if (line.name == "usersharepath" && section.name == "global")
        usershareFolder_ = line.value;
}

bool SambaReader::isShare(const Section& section)
{
    static constexpr std::array<std::string_view, 4> special{"global", "homes", "printers", "print$"};
    if (std::find(special.begin(), special.end(), section.name) != special.end())
        return false;
    return section.available && !section.printer && section.folder.starts_with('/') &&
           !hasVariable(section.folder);
}

std::optional<SambaShare> parseUsershare(const std::string& name, std::string_view text)
{
    const std::string_view first = text.substr(0, text.find_first_of("\r\n"));
    if (first != "#VERSION 2" && first != "#VERSION 1")
        return {};
    SambaShare share{name, {}};
    std::string folder;
    for (const SambaLine& line : parseSambaText(text)) {
        if (line.kind != SambaLine::Kind::setting)
            return {};
        if (line.name == "path")
            folder = line.value;
        else if (line.name == "sharename")
            share.name = line.value;
    }
    if (!folder.starts_with('/') || share.name.empty())
        return {};
    share.folder = withSeparator(folder);
    return share;
}

}  // namespace os
