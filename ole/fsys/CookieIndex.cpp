#include "fsys/CookieIndex.h"

#include "fsys/FsysDirectoryEntry.h"
#include "fsys/RecordPool.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>

namespace {

// Fetches all cache lines of an object at once instead of one after another as they are used.
void prefetch(const void* object, std::size_t bytes)
{
    constexpr std::size_t lineBytes = 64;
    const char* const first = static_cast<const char*>(object);
    for (std::size_t at = 0; at < bytes; at += lineBytes)
        __builtin_prefetch(first + at);
    __builtin_prefetch(first + bytes - 1);
}

}  // namespace

// Orders as Cookie::compare does.
struct CookieIndex::Key
{
    std::uint64_t clip;
    std::uint16_t channel;  // type and number

    static Key of(const Cookie& cookie)
    {
        const auto type = static_cast<unsigned char>(cookie.getType());
        return {cookie.getClip(), static_cast<std::uint16_t>(type << 8 | cookie.getChannel())};
    }
    [[nodiscard]] Cookie cookie() const
    {
        return {static_cast<CookieType>(channel >> 8), clip, static_cast<unsigned char>(channel & 0xFF)};
    }
    // No cookie has the highest type, so this stays within the clip.
    [[nodiscard]] Key next() const { return {clip, static_cast<std::uint16_t>(channel + 1)}; }
    friend bool operator==(const Key&, const Key&) = default;
};

// A leaf's slots are entries, those of a node above are nodes. There a slot's key is no greater than any key
// below it, and greater than any below the slots before.
//
// In nine whole cache lines: a look-up waits for those of the keys and has asked for those of the slots.
struct alignas(64) CookieIndex::Node
{
    static constexpr unsigned slotsMax = 31;
    // Nodes that stay below this together become one: some slots are left for what comes next.
    static constexpr unsigned joinMax = 24;

    std::array<std::uint64_t, slotsMax> clips;
    unsigned count = 0;
    std::array<std::uint16_t, slotsMax> channels;
    std::array<void*, slotsMax> slots;

    // Never destroyed, as the entries' own (FsysDirectoryEntry.cpp).
    static RecordPool& pool()
    {
        static RecordPool& nodes = *new RecordPool(sizeof(Node));
        return nodes;
    }
    static void* operator new(std::size_t) { return pool().take(); }
    static void operator delete(void* node) noexcept { pool().give(node); }

    [[nodiscard]] bool full() const { return count == slotsMax; }
    [[nodiscard]] Key key(unsigned at) const { return {clips[at], channels[at]}; }
    [[nodiscard]] Node& child(unsigned at) const { return *static_cast<Node*>(slots[at]); }
    [[nodiscard]] FsysDirectoryEntry* entry(unsigned at) const
    {
        return static_cast<FsysDirectoryEntry*>(slots[at]);
    }
    [[nodiscard]] bool holds(unsigned at, Key key) const { return at < count && this->key(at) == key; }

    // The first slot whose key is not before key.
    [[nodiscard]] unsigned lowerBound(Key key) const
    {
        const std::uint64_t* from = clips.data();
        for (unsigned rest = count; rest > 0;) {
            const unsigned half = rest / 2;
            // Either outcome is as likely: a sum costs less than a jump that is guessed wrong half the time.
            const auto behind = static_cast<unsigned>(from[half] < key.clip);
            from += (rest - half) & (0u - behind);
            rest = half;
        }
        auto at = static_cast<unsigned>(from - clips.data());
        while (at < count && clips[at] == key.clip && channels[at] < key.channel)
            ++at;
        return at;
    }
    // The slot below which key belongs.
    [[nodiscard]] unsigned slotFor(Key key) const
    {
        const unsigned at = lowerBound(key);
        return holds(at, key) || at == 0 ? at : at - 1;
    }
    // As slotFor, for a key that will be below.
    unsigned openSlotFor(Key key)
    {
        const unsigned at = slotFor(key);
        if (at == 0 && lowerBound(key) == 0) {
            clips[0] = key.clip;
            channels[0] = key.channel;
        }
        return at;
    }
    // REQUIRES: not full.
    void insert(unsigned at, Key key, void* slot)
    {
        const auto open = [&](auto& array, auto value) {
            std::copy_backward(array.begin() + at, array.begin() + count, array.begin() + count + 1);
            array[at] = value;
        };
        open(clips, key.clip);
        open(channels, key.channel);
        open(slots, slot);
        ++count;
    }
    void erase(unsigned at)
    {
        const auto close = [&](auto& array) {
            std::copy(array.begin() + at + 1, array.begin() + count, array.begin() + at);
        };
        close(clips);
        close(channels);
        close(slots);
        --count;
    }
    // Appends the slots of other from that place on, which leave it.
    void takeTail(Node& other, unsigned from)
    {
        const auto append = [&](auto& to, const auto& array) {
            std::copy(array.begin() + from, array.begin() + other.count, to.begin() + count);
        };
        append(clips, other.clips);
        append(channels, other.channels);
        append(slots, other.slots);
        count += other.count - from;
        other.count = from;
    }

    // Splits the full child in slot at, so that slots from middle on are behind it.
    // REQUIRES: not full.
    void splitChild(unsigned at, unsigned middle, Key first)
    {
        auto right = std::make_unique<Node>();
        right->takeTail(child(at), middle);
        insert(at + 1, first, right.release());
    }
    // Makes the child in slot at and the one behind it one node where they are small.
    void joinChildren(unsigned at)
    {
        if (at + 1 >= count || child(at).count + child(at + 1).count > joinMax)
            return;
        const std::unique_ptr<Node> right(&child(at + 1));
        child(at).takeTail(*right, 0);
        erase(at + 1);
    }
};

CookieIndex::~CookieIndex() { clear(); }

FsysDirectoryEntry* CookieIndex::find(const Cookie& cookie) const noexcept
{
    if (!root_)
        return nullptr;
    const Key key = Key::of(cookie);
    const Node* node = root_;
    for (unsigned height = height_; height > 0; --height) {
        node = &node->child(node->slotFor(key));
        prefetch(node, sizeof(Node));
    }
    const unsigned at = node->lowerBound(key);
    if (!node->holds(at, key))
        return nullptr;
    FsysDirectoryEntry* const entry = node->entry(at);
    prefetch(entry, sizeof(FsysDirectoryEntry));
    return entry;
}

CookieIndex::Element CookieIndex::first() const noexcept { return firstFrom({0, 0}); }

CookieIndex::Element CookieIndex::firstBehind(const Cookie& cookie) const noexcept
{
    return firstFrom(Key::of(cookie).next());
}

CookieIndex::Element CookieIndex::firstFrom(Key key) const noexcept
{
    if (!root_)
        return {};
    const Node* node = root_;
    const Node* behind = nullptr;  // the next node on the lowest level so far that has one
    unsigned heightBehind = 0;
    for (unsigned height = height_; height > 0; --height) {
        const unsigned at = node->slotFor(key);
        if (at + 1 < node->count) {
            behind = &node->child(at + 1);
            heightBehind = height - 1;
        }
        node = &node->child(at);
    }
    unsigned at = node->lowerBound(key);
    if (at == node->count) {
        if (!behind)
            return {};
        for (node = behind; heightBehind > 0; --heightBehind)
            node = &node->child(0);
        at = 0;
    }
    return {node->key(at).cookie(), node->entry(at)};
}

FsysDirectoryEntry* CookieIndex::insert(const Cookie& cookie, FsysDirectoryEntry* entry)
{
    const Key key = Key::of(cookie);
    Node* parent = nullptr;
    Node* node = &makeRoot();
    unsigned slot = 0;
    // Each node above the leaf has room for one more before the leaf is looked at, so that whatever fails
    // for want of memory fails before or behind a change and not within one. What comes at the end of a full
    // node leaves it full: behind it more will come in order.
    for (unsigned height = height_; height > 0; --height) {
        slot = node->openSlotFor(key);
        parent = node;
        node = &node->child(slot);
        if (height == 1 || !node->full())
            continue;
        const unsigned middle = node->slotFor(key) + 1 == node->count ? node->count - 1 : Node::slotsMax / 2;
        const Key first = node->key(middle);
        parent->splitChild(slot, middle, first);
        slot = parent->openSlotFor(key);
        node = &parent->child(slot);
    }
    unsigned at = node->lowerBound(key);
    if (node->holds(at, key))
        return node->entry(at);
    if (node->full()) {
        const unsigned middle = at == node->count ? node->count : Node::slotsMax / 2;
        const bool goesRight = at > middle || middle == node->count;
        parent->splitChild(slot, middle, middle == node->count ? key : node->key(middle));
        if (goesRight) {
            node = &parent->child(slot + 1);
            at -= middle;
        }
    }
    node->insert(at, key, entry);
    entry->addRef();
    ++size_;
    return entry;
}

// A root that is full gets a node above it, which has room.
CookieIndex::Node& CookieIndex::makeRoot()
{
    if (!root_) {
        root_ = std::make_unique<Node>().release();
    } else if (root_->full()) {
        auto above = std::make_unique<Node>();
        above->insert(0, root_->key(0), root_);
        root_ = above.release();
        ++height_;
    }
    return *root_;
}

void CookieIndex::shrinkRoot() noexcept
{
    while (root_->count == 1 && height_ > 0) {
        const std::unique_ptr<Node> former(root_);
        root_ = &former->child(0);
        --height_;
    }
    if (root_->count == 0)
        clear();
}

void CookieIndex::drop(FsysDirectoryEntry* entry) noexcept
{
    --size_;
    if (entry->dropRef())
        delete entry;
}

bool CookieIndex::erase(const Cookie& cookie) noexcept
{
    if (!root_ || !eraseBelow(*root_, height_, Key::of(cookie)))
        return false;
    shrinkRoot();
    return true;
}

bool CookieIndex::eraseBelow(Node& node, unsigned height, Key key) noexcept
{
    if (height == 0) {
        const unsigned at = node.lowerBound(key);
        if (!node.holds(at, key))
            return false;
        FsysDirectoryEntry* const leaving = node.entry(at);
        node.erase(at);
        drop(leaving);
        return true;
    }
    const unsigned at = node.slotFor(key);
    if (!eraseBelow(node.child(at), height - 1, key))
        return false;
    if (node.child(at).count == 0) {
        delete &node.child(at);
        node.erase(at);
    } else {
        node.joinChildren(at);
        if (at > 0)
            node.joinChildren(at - 1);
    }
    return true;
}

void CookieIndex::eraseIf(const std::function<bool(const FsysDirectoryEntry&)>& leaves)
{
    if (!root_)
        return;
    eraseBelow(*root_, height_, leaves);
    shrinkRoot();
}

void CookieIndex::eraseBelow(Node& node, unsigned height,
                             const std::function<bool(const FsysDirectoryEntry&)>& leaves)
{
    for (unsigned at = 0; at < node.count;) {
        if (height > 0)
            eraseBelow(node.child(at), height - 1, leaves);
        const bool goes = height > 0 ? node.child(at).count == 0 : leaves(*node.entry(at));
        if (!goes) {
            ++at;
            continue;
        }
        if (height > 0)
            delete &node.child(at);
        else
            drop(node.entry(at));
        node.erase(at);
    }
    if (height > 0)
        for (unsigned at = node.count; at > 0; --at)
            node.joinChildren(at - 1);
}

void CookieIndex::clear() noexcept
{
    if (!root_)
        return;
    Node* const root = root_;
    root_ = nullptr;
    clearBelow(*root, height_);
    delete root;
    height_ = 0;
}

void CookieIndex::clearBelow(Node& node, unsigned height) noexcept
{
    for (unsigned at = 0; at < node.count; ++at) {
        if (height == 0) {
            drop(node.entry(at));
            continue;
        }
        clearBelow(node.child(at), height - 1);
        delete &node.child(at);
    }
}
