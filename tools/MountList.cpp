#include "MountList.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string_view>

namespace {

bool isOctal(char c) { return c >= '0' && c <= '7'; }

// Blanks, line breaks and backslashes of names stand in the table as a backslash and three octal digits.
std::string unescaped(const std::string& text)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && isOctal(text[i + 1]) && isOctal(text[i + 2]) &&
            isOctal(text[i + 3])) {
            plain +=
                static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + text[i + 3] - '0');
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

std::optional<Mount> mountIn(const std::string& line)
{
    Mount mount;
    std::istringstream words(line);
    std::string skipped, device;
    if (!(words >> skipped >> skipped >> device >> skipped >> mount.point) ||
        std::sscanf(device.c_str(), "%u:%u", &mount.major, &mount.minor) != 2)
        return std::nullopt;
    while (words >> skipped && skipped != "-")
        continue;
    if (!(words >> mount.type >> mount.source))
        return std::nullopt;
    mount.point = unescaped(mount.point);
    mount.source = unescaped(mount.source);
    return mount;
}

bool holds(const std::string& point, const std::string& path)
{
    return point == "/" ||
           (path.starts_with(point) && (path.size() == point.size() || path[point.size()] == '/'));
}

constexpr std::array<std::string_view, 12> served{"nfs",  "nfs4", "cifs", "smb3",   "smbfs",     "afs",
                                                  "ceph", "9p",   "coda", "lustre", "glusterfs", "beegfs"};

}  // namespace

std::vector<Mount> mountsIn(const std::string& text)
{
    std::vector<Mount> mounts;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (auto mount = mountIn(line))
            mounts.push_back(*std::move(mount));
    return mounts;
}

std::vector<Mount> mountList()
{
    std::ifstream table("/proc/self/mountinfo", std::ios::binary);
    return mountsIn({std::istreambuf_iterator<char>(table), std::istreambuf_iterator<char>()});
}

const Mount* mountHolding(const std::vector<Mount>& mounts, const std::string& path)
{
    const Mount* holding = nullptr;
    // Of two on one place the later hides the earlier.
    for (const Mount& mount : mounts)
        if (holds(mount.point, path) && (!holding || mount.point.size() >= holding->point.size()))
            holding = &mount;
    return holding;
}

bool isServed(const Mount& mount)
{
    return mount.type.starts_with("fuse") ||
           std::find(served.begin(), served.end(), mount.type) != served.end();
}
