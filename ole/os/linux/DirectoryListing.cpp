#include "os/linux/DirectoryListing.h"

#include "Qz/Utf8.h"
#include "os/LastError.h"
#include "os/linux/OpenFolder.h"
#include "os/linux/ScopedFd.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

namespace os {

namespace {

OpenFolder openFolder(const std::string& path)
{
    // O_NONBLOCK keeps the open from waiting when a pipe stands there.
    ScopedFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
    OpenFolder folder(fd.isOpen() ? ::fdopendir(fd.get()) : nullptr);
    if (folder)
        static_cast<void>(fd.release());
    return folder;
}

bool mayBeRegular(const dirent& entry)
{
    return entry.d_type == DT_REG || entry.d_type == DT_LNK || entry.d_type == DT_UNKNOWN;
}

bool sizeOfRegular(int folder, const char* name, std::uint64_t& size)
{
    struct stat info = {};
    if (::fstatat(folder, name, &info, 0) != 0 || !S_ISREG(info.st_mode))
        return false;
    size = static_cast<std::uint64_t>(info.st_size);
    return true;
}

// False with errno set when the folder could not be read to its end.
bool readEntries(DIR* folder, const NameFilter& isWanted, std::vector<ListedFile>& files, Progress& progress)
{
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(folder);
        if (!entry)
            return errno == 0;
        progress.step();
        if (!mayBeRegular(*entry) || (isWanted && !isWanted(entry->d_name)))
            continue;
        ListedFile file;
        if (sizeOfRegular(::dirfd(folder), entry->d_name, file.size)) {
            file.name = entry->d_name;
            files.push_back(std::move(file));
        }
    }
}

// Goes back to the last '*' on a mismatch, so the time is at most the product of the lengths.
bool matchesWildcards(std::wstring_view pattern, std::wstring_view name)
{
    constexpr std::size_t none = std::wstring_view::npos;
    std::size_t p = 0, n = 0, star = none, starName = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == L'*') {
            star = p++;
            starName = n;
        } else if (p < pattern.size() && (pattern[p] == L'?' || pattern[p] == name[n])) {
            ++p;
            ++n;
        } else if (star != none) {
            p = star + 1;
            n = ++starName;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of(L'*', p) == none;
}

}  // namespace

bool listFolder(const std::string& folder, const NameFilter& isWanted, std::vector<ListedFile>& files,
                Progress& progress)
{
    files.clear();
    const OpenFolder open = openFolder(folder);
    if (!open || !readEntries(open.get(), isWanted, files, progress)) {
        setLastErrno(errno);
        files.clear();
        return false;
    }
    std::sort(files.begin(), files.end(),
              [](const ListedFile& a, const ListedFile& b) { return a.name < b.name; });
    return true;
}

NameFilter wildcardFilter(std::string_view pattern)
{
    if (pattern == "*.*" || pattern == "*")
        return {};
    // Wide, so that '?' is one character and not one byte of it.
    return [wide = fromUTF8(pattern).str()](std::string_view name) {
        return matchesWildcards(wide, fromUTF8(name).view());
    };
}

NameFilter prefixFilter(std::string prefix)
{
    return [prefix = std::move(prefix)](std::string_view name) { return name.starts_with(prefix); };
}

}  // namespace os
