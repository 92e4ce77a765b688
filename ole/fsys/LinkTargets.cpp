#include "fsys/LinkTargets.h"

#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/MediaDrive.h"
#include "support/Log.h"
#include "support/PathHelpers.h"

#include <mutex>
#include <string>
#include <string_view>
#include <unordered_set>

namespace {

using Path = LightweightString<wchar_t>;

// A project of links into a thousand folders has said what there is to say.
constexpr std::size_t foldersMax = 1000;

bool isSeparator(wchar_t letter) { return letter == L'/' || letter == L'\\'; }

bool isAbsolute(std::wstring_view path) { return !path.empty() && isSeparator(path.front()); }

bool climbs(std::wstring_view path)
{
    for (std::size_t at = path.find(L".."); at != std::wstring_view::npos; at = path.find(L"..", at + 1)) {
        const bool begins = at == 0 || isSeparator(path[at - 1]);
        const bool ends = at + 2 == path.size() || isSeparator(path[at + 2]);
        if (begins && ends)
            return true;
    }
    return false;
}

// root: with its trailing separator.
bool holds(std::wstring_view root, std::wstring_view path)
{
    if (root.empty())
        return false;
    root.remove_suffix(1);
    return path.size() > root.size() && path.starts_with(root) && isSeparator(path[root.size()]);
}

bool isInLocation(const Path& target)
{
    if (!isAbsolute(target.view()) || climbs(target.view()))
        return false;
    DriveId id;
    for (bool more = DiskManager::getFirstMaterialVolume(id); more;
         more = DiskManager::getNextMaterialVolume(id))
        if (const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(id);
            drive && holds(drive->getRootLocation().view(), target.view()))
            return true;
    return false;
}

// True once for each folder.
bool isNews(const Path& target)
{
    static std::mutex lock;
    static auto& told = *new std::unordered_set<std::wstring>;  // threads may come late in the process
    const std::lock_guard<std::mutex> hold(lock);
    return told.size() < foldersMax && told.insert(getPath(target).str()).second;
}

bool hasLocations()
{
    DriveId id;
    return DiskManager::getFirstMaterialVolume(id);
}

}  // namespace

void tellIfOutsideOfLocations(const Path& link, const Path& target)
{
    if (!hasLocations() || isInLocation(target) || !isNews(target))
        return;
    Log("fsys: the link %s leads to %s, which no media location holds\n", toUTF8(link).c_str(),
        toUTF8(target).c_str());
}
