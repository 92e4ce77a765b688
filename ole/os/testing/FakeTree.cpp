#include "os/testing/FakeTree.h"

#include "Qz/Utf8.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace fake {
namespace {

using Guard = std::lock_guard<std::mutex>;

constexpr unsigned linksMax = 40;

// Folder of a normal path; empty when there is none to look for.
std::wstring parentOf(const std::wstring& path)
{
    const std::size_t slash = path.rfind(L'/');
    if (slash == std::wstring::npos || path.size() == 1)
        return {};
    return slash == 0 ? L"/" : path.substr(0, slash);
}

std::wstring child(const std::wstring& folder, std::wstring_view name)
{
    std::wstring path = folder;
    if (!path.empty() && path != L"/")
        path += L'/';
    return path.append(name);
}

std::wstring withSlashes(std::wstring_view path)
{
    std::wstring result(path);
    std::replace(result.begin(), result.end(), L'\\', L'/');
    return result;
}

}  // namespace

std::wstring normalPath(std::wstring_view path)
{
    std::wstring result;
    for (const wchar_t character : path)
        if (character != L'/' || result.empty() || result.back() != L'/')
            result += character;
    if (result.size() > 1 && result.back() == L'/')
        result.pop_back();
    return result;
}

bool matchesPattern(std::wstring_view name, std::wstring_view pattern)
{
    if (pattern == L"*.*")
        return true;
    std::size_t at = 0;
    std::size_t star = std::wstring_view::npos;  // place behind the last '*' in pattern
    std::size_t retry = 0;                       // place in name where that '*' ends, so far
    std::size_t in = 0;
    while (in < name.size()) {
        if (at < pattern.size() && pattern[at] == L'*') {
            star = ++at;
            retry = in;
        } else if (at < pattern.size() && (pattern[at] == L'?' || pattern[at] == name[in])) {
            ++at;
            ++in;
        } else if (star != std::wstring_view::npos) {
            at = star;
            in = ++retry;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of(L'*', at) == std::wstring_view::npos;
}

FakeTree::FakeTree() { insert(L"/", Node::Kind::folder); }

std::shared_ptr<Node> FakeTree::insert(const std::wstring& path, Node::Kind kind)
{
    auto node = std::make_shared<Node>(kind);
    node->inode = nextInode_++;
    node->capability = kind == Node::Kind::direct ? 0 : 1;
    nodes_[path] = node;
    return node;
}

std::shared_ptr<Node> FakeTree::at(const std::wstring& path) const
{
    const auto found = nodes_.find(path);
    return found == nodes_.end() ? nullptr : found->second;
}

// The normal path of what path names, links followed; empty when there is nothing.
std::wstring FakeTree::walk(std::wstring_view path, bool followLast) const
{
    std::wstring left = normalPath(path);
    for (unsigned links = 0; links < linksMax; ++links) {
        std::wstring place = left.starts_with(L'/') ? L"/" : L"";
        std::size_t from = place.size();
        bool again = false;
        while (from < left.size() && !again) {
            const std::size_t end = std::min(left.find(L'/', from), left.size());
            const std::wstring next = child(place, std::wstring_view(left).substr(from, end - from));
            const std::shared_ptr<Node> node = at(next);
            if (!node)
                return {};
            if (node->kind == Node::Kind::link && (end < left.size() || followLast)) {
                const bool absolute = node->target.starts_with(L'/');
                left = normalPath((absolute ? node->target : child(place, node->target)) + left.substr(end));
                again = true;
            }
            place = next;
            from = end + 1;
        }
        if (!again)
            return at(place) ? place : std::wstring();
    }
    return {};
}

std::wstring FakeTree::locate(std::wstring_view path, bool followLast) const
{
    std::wstring place = walk(path, followLast);
    if (place.empty() && path.find(L'\\') != std::wstring_view::npos)
        place = walk(withSlashes(path), followLast);
    return place;
}

// Where a new entry of that path goes, its folder's links followed.
std::wstring FakeTree::placeFor(std::wstring_view path) const
{
    for (const std::wstring& named : {normalPath(path), normalPath(withSlashes(path))}) {
        const std::wstring folder = walk(parentOf(named), true);
        if (!folder.empty())
            return child(folder, std::wstring_view(named).substr(named.rfind(L'/') + 1));
    }
    return normalPath(path);
}

int FakeTree::checkParent(const std::wstring& path) const
{
    const std::wstring folder = parentOf(path);
    if (folder.empty())
        return 0;
    const std::shared_ptr<Node> node = at(folder);
    if (!node)
        return ENOENT;
    if (node->kind != Node::Kind::folder)
        return ENOTDIR;
    return writableAt(folder) ? 0 : EACCES;
}

std::shared_ptr<Node> FakeTree::find(std::wstring_view path) const
{
    const Guard guard(mutex_);
    return at(locate(path, true));
}

std::shared_ptr<Node> FakeTree::findItself(std::wstring_view path) const
{
    const Guard guard(mutex_);
    return at(locate(path, false));
}

std::wstring FakeTree::resolve(std::wstring_view path) const
{
    const Guard guard(mutex_);
    return locate(path, true);
}

int FakeTree::make(std::wstring_view path, Node::Kind kind, std::shared_ptr<Node>& node)
{
    const Guard guard(mutex_);
    if (path.empty())
        return ENOENT;
    if (!locate(path, false).empty())
        return EEXIST;
    const std::wstring place = placeFor(path);
    if (const int error = checkParent(place))
        return error;
    node = insert(place, kind);
    return 0;
}

std::shared_ptr<Node> FakeTree::put(std::wstring_view path, Node::Kind kind, std::wstring_view target)
{
    const Guard guard(mutex_);
    const std::wstring place = normalPath(path);
    for (std::wstring folder = parentOf(place); !folder.empty() && !at(folder); folder = parentOf(folder))
        insert(folder, Node::Kind::folder);
    const std::shared_ptr<Node> old = at(place);
    if (old && kind == Node::Kind::folder && old->kind == kind)
        return old;
    auto node = insert(place, kind);
    node->target = target;
    return node;
}

int FakeTree::removeFile(std::wstring_view path)
{
    const Guard guard(mutex_);
    const std::wstring place = locate(path, false);
    if (place.empty())
        return ENOENT;
    if (at(place)->kind == Node::Kind::folder)
        return EISDIR;
    if (const int error = checkParent(place))
        return error;
    erase(nodes_.find(place));
    return 0;
}

int FakeTree::rename(std::wstring_view from, std::wstring_view to)
{
    const Guard guard(mutex_);
    const std::wstring place = locate(from, false);
    if (place.empty())
        return ENOENT;
    const std::shared_ptr<Node> node = at(place);
    if (node->kind == Node::Kind::folder)
        return EISDIR;
    if (!locate(to, false).empty())
        return EEXIST;
    const std::wstring newPlace = placeFor(to);
    if (const int error = checkParent(newPlace))
        return error;
    nodes_.erase(place);
    nodes_[newPlace] = node;
    return 0;
}

FakeTree::Nodes::iterator FakeTree::erase(Nodes::iterator entry)
{
    {
        const Guard guard(entry->second->mutex);
        entry->second->links = 0;
    }
    return nodes_.erase(entry);
}

int FakeTree::removeAll(std::wstring_view path)
{
    const Guard guard(mutex_);
    const std::wstring place = locate(path, false);
    if (place.empty())
        return ENOENT;
    if (const int error = checkParent(place))
        return error;
    erase(nodes_.find(place));
    const std::wstring below = child(place, L"");
    for (auto entry = nodes_.lower_bound(below); entry != nodes_.end() && entry->first.starts_with(below);)
        entry = erase(entry);
    return 0;
}

int FakeTree::list(std::wstring_view folder,
                   const std::function<void(const std::wstring& name, std::uint64_t size)>& each) const
{
    std::vector<std::pair<std::string, std::pair<std::wstring, std::uint64_t>>> found;
    {
        const Guard guard(mutex_);
        const std::wstring place = locate(folder, true);
        const std::shared_ptr<Node> node = at(place);
        if (!node)
            return ENOENT;
        if (node->kind != Node::Kind::folder)
            return ENOTDIR;
        const Guard nodeGuard(node->mutex);
        if (!node->listable)
            return EACCES;
        const std::wstring below = place == L"/" ? place : place + L'/';
        for (auto entry = nodes_.lower_bound(below); entry != nodes_.end() && entry->first.starts_with(below);
             ++entry) {
            const std::wstring name = entry->first.substr(below.size());
            const std::shared_ptr<Node> file = at(walk(entry->first, true));
            if (name.empty() || name.find(L'/') != std::wstring::npos || !file ||
                file->kind != Node::Kind::file)
                continue;
            const Guard fileGuard(file->mutex);
            found.push_back(
                {std::string(toUTF8(std::wstring_view(name)).view()), {name, file->bytes.size()}});
        }
    }
    std::sort(found.begin(), found.end());
    for (const auto& [key, item] : found)
        each(item.first, item.second);
    return 0;
}

void FakeTree::setWritable(std::wstring_view path, bool writable)
{
    const Guard guard(mutex_);
    writable_[normalPath(path)] = writable;
}

bool FakeTree::writableAt(const std::wstring& path) const
{
    const auto found = writable_.find(path);
    return found == writable_.end() || found->second;
}

bool FakeTree::isWritable(std::wstring_view path) const
{
    const Guard guard(mutex_);
    const auto told = writable_.find(normalPath(path));
    if (told != writable_.end())
        return told->second;
    const std::wstring place = locate(path, true);
    return !place.empty() && writableAt(place);
}

}  // namespace fake
