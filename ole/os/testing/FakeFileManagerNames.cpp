// The half of FakeFileManager that is about paths, drives and network names.

#include "os/testing/FakeCore.h"
#include "os/testing/FakeFileManager.h"

#include <algorithm>

namespace {

using fake::Op;
using Guard = std::lock_guard<std::mutex>;
using Path = iFileManager::Path;

void noteName(FakeCore& core, Op op, const LightweightString<wchar_t>& text = {})
{
    fake::Call call;
    call.op = op;
    call.path = text;
    core.log.add(call);
}

// True when path is folder or lies below it; folder with or without a separator at its end.
bool liesIn(std::wstring_view path, std::wstring_view folder)
{
    if (folder.empty())
        return false;
    if (folder.ends_with(L'/') || folder.ends_with(L'\\')) {
        if (path.starts_with(folder))
            return true;
        folder.remove_suffix(1);
        return !folder.empty() && path == folder;
    }
    return path.starts_with(folder) &&
           (path.size() == folder.size() || path[folder.size()] == L'/' || path[folder.size()] == L'\\');
}

// uncName and what path has behind folder, with one backslash between.
Path uncOf(std::wstring_view path, std::wstring_view folder, const Path& uncName)
{
    std::wstring rest(path.substr(std::min(path.size(), folder.size())));
    std::replace(rest.begin(), rest.end(), L'/', L'\\');
    while (rest.starts_with(L'\\'))
        rest.erase(0, 1);
    if (rest.empty())
        return uncName;
    return (uncName.endsWith(L"\\") ? uncName : uncName + L'\\') + rest;
}

}  // namespace

wchar_t FakeFileManager::getPathSeparator() const
{
    const Guard guard(mutex_);
    return separator_;
}

Path FakeFileManager::resolvePath(const Path& path)
{
    if (!canTell(Op::resolvePath, path))
        return path;
    const std::wstring resolved = core_->tree.resolve(path.view());
    return resolved.empty() ? path : Path(resolved);
}

bool FakeFileManager::hasDirectoryPart(const Path& path) const
{
    noteName(*core_, Op::hasDirectoryPart, path);
    return path.find(getPathSeparator()) != Path::npos;
}

Path FakeFileManager::getUNCName(const Path& path)
{
    if (!canTell(Op::getUNCName, path))
        return {};
    const Guard guard(mutex_);
    std::wstring_view folder;
    Path unc;
    const auto consider = [&](const Path& local, const Path& name) {
        if (local.size() > folder.size() && liesIn(path.view(), local.view())) {
            folder = local.view();
            unc = name;
        }
    };
    for (const auto& [local, name] : uncNames_)
        consider(local, name);
    for (const ShareInfo& share : shares_)
        consider(share.localPath, share.uncName);
    return folder.empty() ? Path() : uncOf(path.view(), folder, unc);
}

std::vector<iFileManager::ShareInfo>
FakeFileManager::listShares(const LightweightString<wchar_t>& machineName)
{
    noteName(*core_, Op::listShares, machineName);
    const Guard guard(mutex_);
    return shares_;
}

LightweightString<wchar_t> FakeFileManager::getMachineName()
{
    noteName(*core_, Op::getMachineName);
    const Guard guard(mutex_);
    return machineName_;
}

Qz::Ptr<iDiskDrive> FakeFileManager::getDriveForPath(const Path& path)
{
    if (!canTell(Op::getDriveForPath, path))
        return {};
    const Guard guard(mutex_);
    Qz::Ptr<FakeDrive> best;
    std::size_t bestSize = 0;
    for (const Qz::Ptr<FakeDrive>& drive : drives_) {
        const Path root = drive->properties().root;
        if (root.size() > bestSize && liesIn(path.view(), root.view())) {
            best = drive;
            bestSize = root.size();
        }
    }
    return best;
}

std::vector<Qz::Ptr<iDiskDrive>> FakeFileManager::listDisks(unsigned flag)
{
    if (!canTell(Op::listDisks, Path(std::to_wstring(flag))))
        return {};
    const Guard guard(mutex_);
    return {drives_.begin(), drives_.end()};
}

// --- for tests

void FakeFileManager::setPathSeparator(wchar_t separator)
{
    const Guard guard(mutex_);
    separator_ = separator;
}

Qz::Ptr<FakeDrive> FakeFileManager::addDrive(const fake::DriveProperties& properties)
{
    const Qz::Ptr<FakeDrive> drive(new FakeDrive(properties));
    if (!properties.root.empty())
        core_->tree.put(properties.root.view(), fake::Node::Kind::folder);
    const Guard guard(mutex_);
    drives_.push_back(drive);
    return drive;
}

Qz::Ptr<FakeDrive> FakeFileManager::addDrive(const Path& root)
{
    fake::DriveProperties properties;
    properties.root = root;
    return addDrive(properties);
}

void FakeFileManager::clearDrives()
{
    const Guard guard(mutex_);
    drives_.clear();
}

void FakeFileManager::setMachineName(const LightweightString<wchar_t>& name)
{
    const Guard guard(mutex_);
    machineName_ = name;
}

void FakeFileManager::addShare(const LightweightString<wchar_t>& uncName,
                               const LightweightString<wchar_t>& localPath)
{
    const Guard guard(mutex_);
    shares_.push_back({uncName, localPath});
}

void FakeFileManager::setUNCName(const Path& localPrefix, const LightweightString<wchar_t>& uncName)
{
    const Guard guard(mutex_);
    uncNames_.emplace_back(localPrefix, uncName);
}
