#pragma once

#include "os/testing/SparseBytes.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace fake {

// A file, folder, link or direct path. A file that is deleted lives on in its handles.
struct Node
{
    enum class Kind { file, folder, link, direct };

    explicit Node(Kind nodeKind) : kind(nodeKind) {}

    const Kind kind;
    std::wstring target;  // of a link
    std::mutex mutex;     // guards what follows
    SparseBytes bytes;
    std::uint64_t inode = 0;
    std::int64_t modifiedNs = 0;
    bool listable = true;
    unsigned capability = 1;
    unsigned links = 1;
    unsigned claimedBy = 0;  // number of a handle
};

// FakeTree: paths of the fake file system and the nodes that they name.
//
// Paths are taken apart at '/'; a path that does not exist as named is tried with '\' read as '/'.
// Errors:  errno values, 0 for success.
// Threads: any.
class FakeTree
{
public:
    FakeTree();

    // Follows links; null when there is nothing.
    [[nodiscard]] std::shared_ptr<Node> find(std::wstring_view path) const;
    // Does not follow a link in the last place.
    [[nodiscard]] std::shared_ptr<Node> findItself(std::wstring_view path) const;
    // The path with all links followed; empty when there is nothing.
    [[nodiscard]] std::wstring resolve(std::wstring_view path) const;

    // Makes a node in an existing, writable folder (EEXIST, ENOENT, ENOTDIR, EACCES).
    int make(std::wstring_view path, Node::Kind kind, std::shared_ptr<Node>& node);
    // Makes a node and its parents, replacing what is there; for tests.
    std::shared_ptr<Node> put(std::wstring_view path, Node::Kind kind, std::wstring_view target = {});
    // Removes a file, link or direct path (ENOENT, EISDIR, EACCES).
    int removeFile(std::wstring_view path);
    // Gives a file another name in an existing, writable folder (ENOENT, EISDIR, EEXIST, EACCES).
    int rename(std::wstring_view from, std::wstring_view to);
    // Removes whatever is there, with all below it (ENOENT).
    int removeAll(std::wstring_view path);
    // Calls for each entry of a folder that is, or links to, a regular file, in byte order of the names
    // (ENOENT, ENOTDIR, EACCES).
    int list(std::wstring_view folder,
             const std::function<void(const std::wstring& name, std::uint64_t size)>& each) const;

    // Answer for this very path, existing or not.
    void setWritable(std::wstring_view path, bool writable);
    [[nodiscard]] bool isWritable(std::wstring_view path) const;

private:
    using Nodes = std::map<std::wstring, std::shared_ptr<Node>>;
    [[nodiscard]] std::wstring locate(std::wstring_view path, bool followLast) const;
    [[nodiscard]] std::wstring placeFor(std::wstring_view path) const;
    [[nodiscard]] std::wstring walk(std::wstring_view path, bool followLast) const;
    [[nodiscard]] int checkParent(const std::wstring& path) const;
    [[nodiscard]] std::shared_ptr<Node> at(const std::wstring& path) const;
    [[nodiscard]] bool writableAt(const std::wstring& path) const;
    // The file lives on in its handles, without a name.
    Nodes::iterator erase(Nodes::iterator entry);
    std::shared_ptr<Node> insert(const std::wstring& path, Node::Kind kind);

    mutable std::mutex mutex_;
    std::map<std::wstring, bool> writable_;
    Nodes nodes_;  // by normal path: no trailing separator, except the root "/"
    std::uint64_t nextInode_ = 1;
};

// Without doubled and trailing separators; "/" stays.
[[nodiscard]] std::wstring normalPath(std::wstring_view path);
// '*' and '?' are wildcards, "*.*" matches everything.
[[nodiscard]] bool matchesPattern(std::wstring_view name, std::wstring_view pattern);

}  // namespace fake
