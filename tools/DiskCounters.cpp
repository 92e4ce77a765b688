#include "DiskCounters.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace {

constexpr std::uint64_t sectorBytes = 512;  // the kernel's unit here, whatever the device's own is

std::string contentsOf(const std::string& file)
{
    std::ifstream stream(file);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

std::vector<std::string> wordsOf(std::string_view line)
{
    std::istringstream stream{std::string(line)};
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// The kernel writes blanks, tabs, line ends and backslashes in names as three octal digits.
std::string unescaped(std::string_view text)
{
    const auto isOctal = [](char c) { return c >= '0' && c <= '7'; };
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isEscape = text[i] == '\\' && i + 3 < text.size() && isOctal(text[i + 1]) &&
                              isOctal(text[i + 2]) && isOctal(text[i + 3]);
        if (!isEscape) {
            plain += text[i];
            continue;
        }
        plain += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
        i += 3;
    }
    return plain;
}

// Calls see(line) for each line.
template <class See>
void eachLine(std::string_view text, const See& see)
{
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        see(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}

std::uint64_t numberIn(const std::string& word)
{
    std::uint64_t number = 0;
    std::istringstream(word) >> number;
    return number;
}

// File systems over several disks have a number that is no disk; then the source counts.
std::string deviceOf(const MountLine& mount)
{
    struct stat info = {};
    if (mount.device.starts_with("0:") && mount.source.starts_with("/dev/") &&
        ::stat(mount.source.c_str(), &info) == 0 && S_ISBLK(info.st_mode))
        return std::to_string(major(info.st_rdev)) + ':' + std::to_string(minor(info.st_rdev));
    return mount.device;
}

bool isCountedByMount(const std::string& type) { return type == "nfs" || type == "nfs4"; }

CountedDisk blockDevice(const std::string& device)
{
    const std::string folder = "/sys/dev/block/" + device;
    std::error_code error;
    CountedDisk disk;
    disk.counters = countersOfBlockDevice(contentsOf(folder + "/stat"));
    if (disk.counters)
        disk.name = std::filesystem::canonical(folder, error).filename().string();
    return disk;
}

}  // namespace

std::optional<MountLine> mountLineAt(std::string_view mountInfo, std::string_view mountPoint)
{
    std::optional<MountLine> found;
    eachLine(mountInfo, [&](std::string_view line) {
        const std::vector<std::string> words = wordsOf(line);
        // id, parent, device, root, point, options, optional fields up to "-", type, source, options
        std::size_t dash = 6;
        while (dash < words.size() && words[dash] != "-")
            ++dash;
        if (dash + 2 < words.size() && unescaped(words[4]) == mountPoint)
            found = MountLine{words[2], words[dash + 1], unescaped(words[dash + 2])};
    });
    return found;
}

std::optional<DiskCounters> countersOfBlockDevice(const std::string& stat)
{
    std::istringstream stream(stat);
    // reads, merged, sectors, ms, writes, merged, sectors, ms, in flight, busy ms, waited ms
    std::array<std::uint64_t, 11> field{};
    for (std::uint64_t& number : field)
        if (!(stream >> number))
            return std::nullopt;
    return DiskCounters{.read = {field[0], field[2] * sectorBytes, field[3]},
                        .written = {field[4], field[6] * sectorBytes, field[7]},
                        .waitedMs = field[10],
                        .inFlight = field[8]};
}

std::optional<DiskCounters> countersOfNetworkMount(std::string_view mountStats, std::string_view mountPoint)
{
    std::optional<DiskCounters> found;
    bool isOurs = false;
    // operations, transmissions, timeouts, bytes sent, bytes received, ms queued, ms on the way, ms in all
    const auto take = [&found](const std::vector<std::string>& words, DiskCounters::Direction& direction) {
        direction.transfers = numberIn(words[1]);
        direction.busyMs = numberIn(words[8]);
        found->waitedMs += direction.busyMs;
    };
    eachLine(mountStats, [&](std::string_view line) {
        const std::vector<std::string> words = wordsOf(line);
        if (words.size() > 4 && words[0] == "device" && words[2] == "mounted") {
            isOurs = unescaped(words[4]) == mountPoint;
            if (isOurs)
                found.reset();
            return;
        }
        if (!isOurs || words.empty())
            return;
        if (words[0] == "bytes:" && words.size() > 6) {
            found = DiskCounters();
            found->read.bytes = numberIn(words[5]);
            found->written.bytes = numberIn(words[6]);
        } else if (words[0] == "READ:" && words.size() > 8 && found) {
            take(words, found->read);
        } else if (words[0] == "WRITE:" && words.size() > 8 && found) {
            take(words, found->written);
        }
    });
    return found;
}

CountedDisk diskMountedAt(const std::string& mountPoint)
{
    std::string point = mountPoint;
    while (point.size() > 1 && point.back() == '/')
        point.pop_back();
    const std::optional<MountLine> mount = mountLineAt(contentsOf("/proc/self/mountinfo"), point);
    if (!mount)
        return {};
    if (!isCountedByMount(mount->type))
        return blockDevice(deviceOf(*mount));
    CountedDisk share;
    share.counters = countersOfNetworkMount(contentsOf("/proc/self/mountstats"), point);
    share.name = mount->source;
    return share;
}
