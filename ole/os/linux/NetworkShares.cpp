#include "os/linux/NetworkShares.h"

#include "os/linux/PathText.h"

#include <algorithm>

namespace os {

namespace {

struct RemoteFolder
{
    std::string machine;
    std::string folder;
};

// What may stand around a host: a user before it, a second server, a port or a network behind it.
std::string hostOnly(std::string host, bool mayNameUser)
{
    if (mayNameUser)
        host.erase(0, host.find('@') == std::string::npos ? 0 : host.rfind('@') + 1);
    host.resize(std::min(host.find(','), host.size()));
    if (host.starts_with('[') && host.find(']') != std::string::npos)
        return host.substr(1, host.find(']') - 1);
    host.resize(std::min(host.find('@'), host.size()));
    const bool hasPort = std::count(host.begin(), host.end(), ':') == 1;
    return hasPort ? host.substr(0, host.find(':')) : host;
}

RemoteFolder splitAtSlash(const std::string& text, bool mayNameUser)
{
    const std::size_t slash = std::min(text.find('/'), text.size());
    return {hostOnly(text.substr(0, slash), mayNameUser), text.substr(slash)};
}

// "//server/share", "scheme://server/share", "server:/export" or "server:export".
RemoteFolder remoteFolderOf(const std::string& source, bool mayNameUser)
{
    if (source.starts_with("//"))
        return splitAtSlash(source.substr(2), mayNameUser);
    if (const std::size_t scheme = source.find("://"); scheme != std::string::npos)
        return splitAtSlash(source.substr(scheme + 3), mayNameUser);
    std::size_t colon = source.find(":/");
    if (colon == std::string::npos)
        colon = source.starts_with('[') ? source.find("]:") + 1 : source.find(':');
    if (colon == std::string::npos || colon == 0 || source.starts_with('/'))
        return {};
    return {hostOnly(source.substr(0, colon), mayNameUser), source.substr(colon + 1)};
}

std::string withBackslashes(std::string_view path)
{
    std::string name;
    for (const std::string& component : pathComponents(path))
        name += '\\' + component;
    return name;
}

// A mount of a folder inside the exported one names that folder in its root, some types also in their
// source.
std::string folderOfMount(const RemoteFolder& remote, const MountEntry& mount)
{
    const std::string folder = tidyPath('/' + remote.folder);
    const bool named = mount.root == "/" || folder == mount.root || folder.ends_with(mount.root);
    return named ? folder : folder + mount.root;
}

}  // namespace

std::string networkNameOfMount(const MountEntry& mount)
{
    const bool mayNameUser = mount.fsType.starts_with("fuse");
    const RemoteFolder remote = remoteFolderOf(withOwnSeparators(mount.source), mayNameUser);
    if (remote.machine.empty())
        return {};
    return "\\\\" + remote.machine + withBackslashes(folderOfMount(remote, mount));
}

std::string networkNameOfShare(const std::string& machine, const SambaShare& share)
{
    return "\\\\" + machine + '\\' + share.name;
}

std::string networkNameInShares(const std::string& path, const std::string& machine,
                                const std::vector<SambaShare>& shares)
{
    const SambaShare* best = nullptr;
    for (const SambaShare& share : shares)
        if (isAtOrBelow(path, tidyPath(share.folder)) && (!best || share.folder.size() > best->folder.size()))
            best = &share;
    if (!best)
        return {};
    return networkNameBelow(networkNameOfShare(machine, *best), tidyPath(best->folder), path);
}

std::string networkNameBelow(const std::string& folderName, const std::string& folder,
                             const std::string& path)
{
    return folderName + withBackslashes(path.substr(std::min(folder.size(), path.size())));
}

}  // namespace os
