#pragma once

#include "Qz/Cookie.h"

#include <cstddef>
#include <functional>
#include <utility>

class FsysDirectoryEntry;

// CookieIndex: an ordered map from cookies to shared entries, made for millions of them.
//
// A tree of nodes with up to 31 keys each: a look-up touches a few nodes where a binary tree touches
// twenty, and an element costs 18 bytes beside its entry. Cookies that come in order fill nodes whole.
//
// Threads:    none of its own; the owner keeps changes apart from everything else.
// Ownership:  holds one reference to each entry.
// Order:      that of Cookie::compare; keys are unique.
// Errors:     insert throws std::bad_alloc where memory is short, and the index holds what it held.
class CookieIndex
{
public:
    using Element = std::pair<Cookie, FsysDirectoryEntry*>;  // a null entry where there is no element

    CookieIndex() noexcept = default;
    ~CookieIndex();
    CookieIndex(const CookieIndex&) = delete;
    CookieIndex& operator=(const CookieIndex&) = delete;

    [[nodiscard]] std::size_t size() const noexcept { return size_; }
    // The entry of cookie, or null.
    [[nodiscard]] FsysDirectoryEntry* find(const Cookie& cookie) const noexcept;
    // A walk that survives changes of the index: the first element of all, the first behind cookie.
    [[nodiscard]] Element first() const noexcept;
    [[nodiscard]] Element firstBehind(const Cookie& cookie) const noexcept;

    // Takes entry in unless cookie has one; answers the entry that cookie has now.
    // REQUIRES: entry can be held by a Qz::Ptr.
    FsysDirectoryEntry* insert(const Cookie& cookie, FsysDirectoryEntry* entry);
    // False when there was none.
    bool erase(const Cookie& cookie) noexcept;
    // Drops the elements whose entry leaves.
    void eraseIf(const std::function<bool(const FsysDirectoryEntry&)>& leaves);
    void clear() noexcept;

private:
    struct Key;
    struct Node;

    [[nodiscard]] Element firstFrom(Key key) const noexcept;
    Node& makeRoot();
    void shrinkRoot() noexcept;
    void drop(FsysDirectoryEntry* entry) noexcept;
    bool eraseBelow(Node& node, unsigned height, Key key) noexcept;
    void eraseBelow(Node& node, unsigned height,
                    const std::function<bool(const FsysDirectoryEntry&)>& leaves);
    void clearBelow(Node& node, unsigned height) noexcept;

    Node* root_ = nullptr;
    unsigned height_ = 0;  // of the root above the leaves
    std::size_t size_ = 0;
};
