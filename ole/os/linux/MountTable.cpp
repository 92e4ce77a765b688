#include "os/linux/MountTable.h"

#include "os/linux/PathText.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include <libmount/libmount.h>
#include <sys/sysmacros.h>

namespace os {

namespace {

struct Closer
{
    void operator()(libmnt_table* table) const { mnt_unref_table(table); }
    void operator()(libmnt_iter* walk) const { mnt_free_iter(walk); }
    void operator()(FILE* stream) const { std::fclose(stream); }
};
using Table = std::unique_ptr<libmnt_table, Closer>;
using Iterator = std::unique_ptr<libmnt_iter, Closer>;
using Stream = std::unique_ptr<FILE, Closer>;

std::string textOf(const char* text) { return text ? text : ""; }

bool isReadOnly(libmnt_fs* line)
{
    const auto says = [](const char* options) {
        return options && mnt_optstr_get_option(options, "ro", nullptr, nullptr) == 0;
    };
    return says(mnt_fs_get_vfs_options(line)) || says(mnt_fs_get_fs_options(line));
}

MountEntry entryOf(libmnt_fs* line)
{
    MountEntry entry;
    entry.id = mnt_fs_get_id(line);
    entry.parentId = mnt_fs_get_parent_id(line);
    entry.major = major(mnt_fs_get_devno(line));
    entry.minor = minor(mnt_fs_get_devno(line));
    entry.root = textOf(mnt_fs_get_root(line));
    entry.mountPoint = tidyPath(textOf(mnt_fs_get_target(line)));
    entry.fsType = textOf(mnt_fs_get_fstype(line));
    entry.source = textOf(mnt_fs_get_source(line));
    entry.readOnly = isReadOnly(line);
    return entry;
}

// The parser tells the form of a table by its first line, so nothing may stand before a proper one.
std::string_view fromFirstNumber(std::string_view text)
{
    while (!text.empty() && (text[0] < '0' || text[0] > '9')) {
        const std::size_t end = text.find('\n');
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return text;
}

}  // namespace

std::vector<MountEntry> parseMountInfo(std::string_view text)
{
    std::vector<MountEntry> entries;
    std::string table(fromFirstNumber(text));
    const Table parsed(mnt_new_table());
    const Stream stream(table.empty() ? nullptr : fmemopen(table.data(), table.size(), "r"));
    if (!parsed || !stream)
        return entries;
    // Goes on behind a line that is none.
    mnt_table_set_parser_errcb(parsed.get(), [](libmnt_table*, const char*, int) { return 1; });
    if (mnt_table_parse_stream(parsed.get(), stream.get(), "mountinfo") != 0)
        return entries;
    const Iterator walk(mnt_new_iter(MNT_ITER_FORWARD));
    libmnt_fs* line = nullptr;
    while (walk && mnt_table_next_fs(parsed.get(), walk.get(), &line) == 0) {
        MountEntry entry = entryOf(line);
        if (entry.mountPoint.starts_with('/'))
            entries.push_back(std::move(entry));
    }
    return entries;
}

MountTable::MountTable(std::vector<MountEntry> entries) : entries_(std::move(entries))
{
    for (std::size_t i = 0; i < entries_.size(); ++i)
        byPoint_.emplace(entries_[i].mountPoint, i);
}

const MountEntry* MountTable::find(std::string_view path) const
{
    const MountEntry* mount = root();
    // A process whose root is a plain folder does not see the mount of its root, and the chain of
    // parents has no start.
    if (!mount)
        return longestPrefix(path);
    mount = descend(mount, "/");
    for (std::size_t end = 2; end <= path.size(); ++end)
        if (end == path.size() || path[end] == '/')
            mount = descend(mount, path.substr(0, end));
    return mount;
}

const MountEntry* MountTable::mountedAt(std::string_view point) const
{
    const MountEntry* mount = find(point);
    return mount && mount->mountPoint == point ? mount : nullptr;
}

// The mount at "/" whose parent is not at "/" in this table: the bottom of the stack.
const MountEntry* MountTable::root() const
{
    const auto [first, last] = byPoint_.equal_range("/");
    for (auto i = first; i != last; ++i) {
        const MountEntry& candidate = entries_[i->second];
        const bool onTop = std::any_of(first, last, [&](const auto& other) {
            return entries_[other.second].id == candidate.parentId && &entries_[other.second] != &candidate;
        });
        if (!onTop)
            return &candidate;
    }
    return nullptr;
}

// Climbs from mount through all mounts that are stacked at point.
const MountEntry* MountTable::descend(const MountEntry* mount, std::string_view point) const
{
    const auto [first, last] = byPoint_.equal_range(std::string(point));
    for (auto left = std::distance(first, last); left > 0; --left) {
        const auto above = std::find_if(first, last, [&](const auto& candidate) {
            const MountEntry& entry = entries_[candidate.second];
            return entry.parentId == mount->id && &entry != mount;
        });
        if (above == last)
            break;
        mount = &entries_[above->second];
    }
    return mount;
}

const MountEntry* MountTable::longestPrefix(std::string_view path) const
{
    const MountEntry* best = nullptr;
    for (const MountEntry& entry : entries_)
        if (isAtOrBelow(path, entry.mountPoint) &&
            (!best || entry.mountPoint.size() >= best->mountPoint.size()))
            best = &entry;
    return best;
}

}  // namespace os
