// Names and sizes of the files of folders: by the media cache, and by bare loops over the system calls.

#include "Engine.h"
#include "Peers.h"
#include "Qz/Utf8.h"
#include "TestFile.h"
#include "fsys/SystemCache.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <thread>

namespace {

using Folder = std::unique_ptr<DIR, int (*)(DIR*)>;

Folder openFolder(const std::string& path)
{
    Folder folder(::opendir(path.c_str()), &::closedir);
    require(folder != nullptr, "open folder " + path);
    return folder;
}

bool isOwnOrParent(const dirent& entry)
{
    const std::string_view name(entry.d_name);
    return name == "." || name == "..";
}

struct Names
{
    std::vector<char> text;               // all names, each with its zero
    std::vector<std::size_t> beginnings;  // of the names in text
};

Names namesOf(DIR* folder)
{
    Names names;
    while (const dirent* const entry = ::readdir(folder)) {
        if (isOwnOrParent(*entry))
            continue;
        names.beginnings.push_back(names.text.size());
        const std::string_view name(entry->d_name);
        names.text.insert(names.text.end(), name.begin(), name.end());
        names.text.push_back('\0');
    }
    return names;
}

// Every second name from first on; the sum of the sizes is what keeps the loop from being empty.
std::uint64_t statHalf(int folder, const Names& names, std::size_t first)
{
    std::uint64_t bytes = 0;
    for (std::size_t i = first; i < names.beginnings.size(); i += 2) {
        struct statx status = {};
        require(::statx(folder, &names.text[names.beginnings[i]], AT_STATX_DONT_SYNC, STATX_TYPE | STATX_SIZE,
                        &status) == 0,
                "statx");
        bytes += status.stx_size;
    }
    return bytes;
}

template <class CountFiles>
Json timeFolders(const Work& work, const CountFiles& countFiles)
{
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
    Meter meter;
    meter.start();
    for (const std::string& path : work.paths)
        files += countFiles(path, bytes);
    meter.stop();
    Json report = meter.report(files, 0);
    report["listed_bytes"] = bytes;
    return report;
}

}  // namespace

Json peers::scanFsys(const Work& work)
{
    const Engine engine(work);
    Json report = timeFolders(work, [](const std::string& path, std::uint64_t&) {
        const std::uint64_t before = SystemCache::getScanCounts().files;
        SystemCache::addDirectory(MaterialFilename(DriveId(), fromUTF8(path + "/")));
        return SystemCache::getScanCounts().files - before;
    });
    report["clips"] = SystemCache::getScanCounts().clips;
    return report;
}

Json peers::scanNames(const Work& work)
{
    return timeFolders(work, [](const std::string& path, std::uint64_t&) {
        return namesOf(openFolder(path).get()).beginnings.size();
    });
}

Json peers::scanFstatat(const Work& work)
{
    return timeFolders(work, [](const std::string& path, std::uint64_t& bytes) {
        const Folder folder = openFolder(path);
        std::uint64_t files = 0;
        while (const dirent* const entry = ::readdir(folder.get())) {
            if (isOwnOrParent(*entry))
                continue;
            struct stat status = {};
            require(::fstatat(::dirfd(folder.get()), entry->d_name, &status, 0) == 0, "fstatat");
            bytes += static_cast<std::uint64_t>(status.st_size);
            ++files;
        }
        return files;
    });
}

Json peers::scanStatx2(const Work& work)
{
    return timeFolders(work, [](const std::string& path, std::uint64_t& bytes) {
        const Folder folder = openFolder(path);
        const Names names = namesOf(folder.get());
        std::uint64_t others = 0;
        {
            const std::jthread second([&] { others = statHalf(::dirfd(folder.get()), names, 1); });
            bytes += statHalf(::dirfd(folder.get()), names, 0);
        }
        bytes += others;
        return names.beginnings.size();
    });
}
