#include "os/linux/SambaConfig.h"

#include "os/LastError.h"
#include "os/linux/DebugLine.h"
#include "os/linux/DirectoryListing.h"
#include "os/linux/PathText.h"
#include "os/linux/SambaReader.h"
#include "os/linux/WholeFile.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

namespace os {

namespace {

constexpr std::size_t configBytesMax = 4u << 20;
constexpr std::size_t usershareBytesMax = 64u << 10;
constexpr const char* standardConfig = "/etc/samba/smb.conf";
constexpr const char* standardUsershares = "/var/lib/samba/usershares";

std::optional<std::string> readConfig(const std::string& file, std::size_t limit)
{
    std::string text;
    Progress unused;
    if (readRegularFile(file, limit, text, unused))
        return text;
    debugLine(file + ": " + errorText(lastError()).str());
    return {};
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
    SambaReader reader([](const std::string& file) { return readConfig(file, configBytesMax); });
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
