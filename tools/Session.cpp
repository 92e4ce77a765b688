#include "Session.h"

#include "Qz/Shutdown.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "fsys/MaterialLink.h"
#include "fsys/SystemCache.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <cstdlib>
#include <filesystem>

namespace {

std::string environment(const char* name)
{
    const char* const value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

std::string projectSpaceOf(const Options& options)
{
    if (!options.space.empty())
        return std::filesystem::absolute(options.space).string();
    if (const std::string space = environment("FSYS_SPACE"); !space.empty())
        return std::filesystem::absolute(space).string();
    // By the rules for these variables a relative path counts as none.
    if (const std::string data = environment("XDG_DATA_HOME"); data.starts_with('/'))
        return data + "/fsys";
    const std::string home = environment("HOME");
    return home.empty() ? home : home + "/.local/share/fsys";
}

Session::Session(const Options& options) : space_(projectSpaceOf(options))
{
    std::error_code error;
    if (space_.empty())
        error = std::make_error_code(std::errc::invalid_argument);
    else
        std::filesystem::create_directories(space_, error);
    if (error) {
        if (space_.empty())
            complain("no home folder is known; name the project space with --space");
        else
            complain("cannot make the project space %s: %s", space_.c_str(), error.message().c_str());
        failed_ = true;
        return;
    }
    FsysInitialize();
    DiskManager::init(wide(space_), options.noDiscovery);
}

Session::~Session() { Shutdown::run(Shutdown::eNormalExit); }

bool Session::canPersist() const
{
    // Permissions do not tell: some file systems take no new files of anybody.
    iFileManager* const files = OS()->getFileManager();
    const LightweightString<wchar_t> trial = wide(space_ + "/.trial");
    if (files->replaceFile(trial, "trial") && files->deleteFile(trial))
        return true;
    complain("the project space %s cannot be written", space_.c_str());
    return false;
}

std::optional<DriveId> findLocation(const std::string& idOrPath)
{
    if (idOrPath.size() == 1) {
        const DriveId id(idOrPath[0]);
        if (DiskManager::isVolumePresent(id))
            return id;
    }
    std::string path = std::filesystem::absolute(idOrPath).lexically_normal().string();
    if (path.back() != '/')
        path += '/';
    // To the letter: names that differ in case are different folders here.
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(wide(path));
    return drive ? std::optional<DriveId>(drive->getId()) : std::nullopt;
}

Cookie cookieOf(const std::string& text) { return Cookie(wide(text), false); }

DecodeFormat formatOf(const std::string& level, unsigned height)
{
    DecodeFormat format(level == "proxy" ? eProxy : level == "auto" ? eAuto : eHighRes);
    if (height != 0)
        format.setHeight(height);
    return format;
}

LightweightString<wchar_t> targetOf(const LightweightString<wchar_t>& path)
{
    LightweightString<wchar_t> target;
    MaterialLink::getLinkedFilename(path, target);
    return target;
}

Source sourceOf(const std::string& cookieOrPath, const DecodeFormat& format)
{
    Source source;
    const Cookie cookie = cookieOf(cookieOrPath);
    if (cookie.valid() && SystemCache::findEntryForCookie(cookie)) {
        if (!SystemCache::findFileForCookie(cookie, source.path, format) || source.path.empty()) {
            complain("%s is offline", cookieOrPath.c_str());
            source.status = exitNo;
            return source;
        }
    } else {
        source.path = wide(std::filesystem::absolute(cookieOrPath).string());
    }
    iFileManager* const files = OS()->getFileManager();
    const LightweightString<wchar_t> target = targetOf(source.path);
    if (target.empty() || !files->fileExists(target) || files->isOpenedDirectly(target)) {
        if (target != source.path && !source.path.empty())
            complain("%s is a link file, and its target %s is not there", cookieOrPath.c_str(),
                     utf8(target).c_str());
        else if (cookie.valid())
            complain("no media of %s is known or reachable", cookieOrPath.c_str());
        else
            complain("%s is neither a known clip nor a file", cookieOrPath.c_str());
        source.status = exitNo;
        return source;
    }
    source.size = files->getFileSize(target);
    return source;
}
