#include "fsys/FolderName.h"

#include <atomic>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

struct FolderName::Body
{
    std::wstring_view text;  // that of its key in the table
    std::atomic<std::size_t> holders{0};
};

// Never destroyed: static objects may hold folders to the end.
struct FolderName::Table
{
    struct Hash
    {
        using is_transparent = void;
        std::size_t operator()(std::wstring_view text) const { return std::hash<std::wstring_view>()(text); }
    };

    std::mutex lock;
    std::unordered_map<std::wstring, Body, Hash, std::equal_to<>> bodies;  // guarded by lock

    static Table& instance()
    {
        static Table& table = *new Table;
        return table;
    }
};

FolderName::FolderName(std::wstring_view text)
{
    Table& table = Table::instance();
    const std::lock_guard hold(table.lock);
    auto found = table.bodies.find(text);
    if (found == table.bodies.end()) {
        found = table.bodies.try_emplace(std::wstring(text)).first;
        found->second.text = found->first;
    }
    body_ = &found->second;
    body_->holders.fetch_add(1, std::memory_order_relaxed);
}

FolderName::FolderName(const FolderName& other) noexcept : body_(other.body_)
{
    if (body_)
        body_->holders.fetch_add(1, std::memory_order_relaxed);
}

FolderName::FolderName(FolderName&& other) noexcept : body_(std::exchange(other.body_, nullptr)) {}

FolderName& FolderName::operator=(FolderName other) noexcept
{
    std::swap(body_, other.body_);
    return *this;
}

FolderName::~FolderName()
{
    if (!body_)
        return;
    std::size_t seen = body_->holders.load(std::memory_order_relaxed);
    while (seen > 1)
        if (body_->holders.compare_exchange_weak(seen, seen - 1, std::memory_order_release,
                                                 std::memory_order_relaxed))
            return;
    // The last one goes under the lock: until then the table may hand the folder out again.
    Table& table = Table::instance();
    const std::lock_guard hold(table.lock);
    if (body_->holders.fetch_sub(1, std::memory_order_acq_rel) == 1)
        table.bodies.erase(table.bodies.find(body_->text));
}

std::wstring_view FolderName::view() const noexcept { return body_ ? body_->text : std::wstring_view(); }

std::size_t FolderName::countHeld()
{
    Table& table = Table::instance();
    const std::lock_guard hold(table.lock);
    return table.bodies.size();
}
