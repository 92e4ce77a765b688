#include "os/linux/SambaConfig.h"

#include "os/LastError.h"
#include "os/linux/DebugLine.h"
#include "os/linux/DirectoryListing.h"
#include "os/linux/PathText.h"
#include "os/linux/SambaText.h"
#include "os/linux/WholeFile.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>

namespace os {

namespace {

constexpr std::size_t configBytesMax = 4u << 20;
constexpr std::size_t usershareBytesMax = 64u << 10;
constexpr unsigned configFilesMax = 100;  // ends includes that name each other
constexpr const char* standardConfig = "/etc/samba/smb.conf";
constexpr const char* standardUsershares = "/var/lib/samba/usershares";

bool hasVariable(std::string_view text) { return text.find('%') != std::string_view::npos; }

std::string withSeparator(std::string_view folder)
{
    const std::string tidy = tidyPath(folder);
    return tidy == "/" ? tidy : tidy + '/';
}

std::optional<std::string> readConfig(const std::string& file, std::size_t limit)
{
    std::string text;
    Progress unused;
    if (readRegularFile(file, limit, text, unused))
        return text;
    debugLine(file + ": " + errorText(lastError()).str());
    return {};
}

// What the sections of a configuration and its includes say, gathered over all files.
class SambaReader
{
public:
    void readFile(const std::string& file)
    {
        if (++files_ > configFilesMax) {
            debugLine(file + ": too many included files");
            return;
        }
        const std::optional<std::string> text = readConfig(file, configBytesMax);
        if (!text)
            return;
        open_.push_back(file);
        for (const SambaLine& line : parseSambaText(*text))
            take(line, file);
        open_.pop_back();
    }

    [[nodiscard]] const std::string& usershareFolder() const { return usershareFolder_; }

    [[nodiscard]] std::vector<SambaShare> shares() const
    {
        std::vector<SambaShare> result;
        for (const Section& section : sections_)
            if (isShare(section))
                result.push_back({section.label, withSeparator(section.folder)});
        return result;
    }

private:
    struct Section
    {
        std::string name;
        std::string label;
        std::string folder;
        bool available = true;
        bool printer = false;
    };

    void take(const SambaLine& line, const std::string& file)
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
    std::size_t indexOf(const SambaLine& line)
    {
        const auto found = std::find_if(sections_.begin(), sections_.end(),
                                        [&](const Section& section) { return section.name == line.name; });
        if (found != sections_.end())
            return static_cast<std::size_t>(found - sections_.begin());
        sections_.push_back({line.name, line.label, {}, true, false});
        return sections_.size() - 1;
    }

    // An included file goes on in the section that includes it.
    void include(const std::string& value, const std::string& from)
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

    void set(const SambaLine& line)
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

    static bool isShare(const Section& section)
    {
        static constexpr std::array<std::string_view, 4> special{"global", "homes", "printers", "print$"};
        if (std::find(special.begin(), special.end(), section.name) != special.end())
            return false;
        return section.available && !section.printer && section.folder.starts_with('/') &&
               !hasVariable(section.folder);
    }

    // Settings before the first section belong to [global].
    std::vector<Section> sections_{{"global", "global", {}, true, false}};
    std::size_t section_ = 0;
    std::vector<std::string> open_;  // files that are being read, the outermost first
    std::string usershareFolder_;
    unsigned files_ = 0;
};

// One file: "#VERSION 1" or "#VERSION 2" as its first line, then settings.
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

void addUsershares(const std::string& folder, std::vector<SambaShare>& shares)
{
    FolderListing files;
    Progress unused;
    if (folder.empty() || !listFolder(folder, {}, files, unused))
        return;
    const std::string prefix = folder + '/';
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string name = pathBytes(files[i].name);
        const std::string path = prefix + name;
        const std::optional<std::string> text = readConfig(path, usershareBytesMax);
        const std::optional<SambaShare> share = text ? parseUsershare(name, *text) : std::nullopt;
        if (share)
            shares.push_back(*share);
        else
            debugLine(path + ": no user share");
    }
}

}  // namespace

std::vector<SambaShare> readSambaShares(const std::string& configFile, const std::string& usershareFolder)
{
    SambaReader reader;
    reader.readFile(configFile);
    std::vector<SambaShare> shares = reader.shares();
    addUsershares(reader.usershareFolder().empty() ? usershareFolder : reader.usershareFolder(), shares);
    std::stable_sort(shares.begin(), shares.end(), [](const SambaShare& a, const SambaShare& b) {
        return a.name.size() != b.name.size() ? a.name.size() > b.name.size() : a.name < b.name;
    });
    return shares;
}

std::vector<SambaShare> sambaShares()
{
    const char* config = std::getenv("FSYS_SMB_CONF");
    if (config && *config)
        return readSambaShares(config, {});
    return readSambaShares(standardConfig, standardUsershares);
}

}  // namespace os
