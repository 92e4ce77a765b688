#include "WriteModel.h"

#include <algorithm>

namespace {

constexpr std::size_t sectorBytes = 512;
constexpr std::size_t gatherLimitBytes = 131072;

std::string at(const char* what, std::uint64_t position)
{
    return std::string(what) + " at " + std::to_string(position);
}

}  // namespace

WriteModel::Way WriteModel::wayOf(std::size_t size) const
{
    if (position_ % sectorBytes == 0 && size % sectorBytes == 0 && gathered_.empty())
        return Way::direct;
    return gathered_.size() + size <= gatherLimitBytes ? Way::gathered : Way::overflows;
}

void WriteModel::writeDirect(unsigned caller, const std::string& bytes)
{
    pending_.push_back({caller, position_, bytes});
    position_ += bytes.size();
    gatheredAt_ = position_;
}

void WriteModel::beginOverflow(unsigned caller)
{
    const std::size_t whole = gathered_.size() - gathered_.size() % sectorBytes;
    pending_.push_back({caller, position_, gathered_.substr(0, whole)});
}

void WriteModel::endOverflow()
{
    const std::size_t whole = gathered_.size() - gathered_.size() % sectorBytes;
    gathered_.erase(0, whole);
    position_ += whole;
    gatheredAt_ = position_;
}

void WriteModel::putGathered()
{
    put(gatheredAt_, gathered_);
    gathered_.clear();
}

void WriteModel::write(const std::string& bytes)
{
    if (!gathered_.empty()) {
        position_ = gatheredAt_ + gathered_.size();
        putGathered();
    }
    put(position_, bytes);
    position_ += bytes.size();
}

void WriteModel::seek(std::uint64_t position)
{
    putGathered();
    position_ = position;
}

void WriteModel::close()
{
    const std::string again = gathered_;
    if (!again.empty())
        write(again);
}

void WriteModel::put(std::uint64_t position, std::string_view bytes)
{
    if (bytes.empty())
        return;
    if (disk_.size() < position + bytes.size())
        disk_.resize(position + bytes.size());
    std::copy(bytes.begin(), bytes.end(), disk_.begin() + static_cast<std::ptrdiff_t>(position));
}

std::string WriteModel::transferred(std::uint64_t position, std::size_t length, std::size_t moved,
                                    std::vector<unsigned>& callers)
{
    const std::uint64_t end = position + length;
    // Requests that were joined lie one behind the other.
    for (std::uint64_t next = position; next < end;) {
        const auto found = std::find_if(pending_.begin(), pending_.end(), [next](const Pending& request) {
            return !request.gone && request.position == next;
        });
        if (found == pending_.end() || found->position + found->bytes.size() > end)
            return at("bytes are written that nobody asked to write", next);
        const std::uint64_t movedEnd = position + moved;
        const std::size_t arrived =
            movedEnd <= next ? 0 : std::min<std::size_t>(found->bytes.size(), movedEnd - next);
        put(next, std::string_view(found->bytes).substr(0, arrived));
        next += found->bytes.size();
        found->gone = true;
        callers.push_back(found->caller);
    }
    std::erase_if(pending_, [](const Pending& request) { return request.gone; });
    return {};
}

void WriteModel::refused(unsigned caller)
{
    std::erase_if(pending_, [caller](const Pending& request) { return request.caller == caller; });
}

std::string WriteModel::differenceTo(const std::string& file) const
{
    const auto mayBe = [&](std::size_t i) {
        const char byte = i < file.size() ? file[i] : '\0';
        if (byte == (i < disk_.size() ? disk_[i] : '\0'))
            return true;
        return std::any_of(pending_.begin(), pending_.end(), [&](const Pending& request) {
            return i >= request.position && i < request.position + request.bytes.size() &&
                   request.bytes[i - request.position] == byte;
        });
    };
    if (file == disk_)
        return {};
    for (std::size_t i = 0; i < std::max(file.size(), disk_.size()); ++i)
        if (!mayBe(i))
            return at("the file differs", i);
    return pending_.empty() && file.size() != disk_.size() ? "the file has another length" : "";
}
