#include "media/ReadAhead.h"

#include <algorithm>

namespace {

// Leaves room in the engine for reads that are asked for.
constexpr std::uint64_t piecesMax = 24;
constexpr std::uint64_t pieceBytesMin = std::uint64_t{1} << 20;
constexpr std::uint64_t pieceBytesMax = MediaReader::asyncBytesMax;

}  // namespace

void ReadAhead::setBytes(std::uint64_t bytes) { bytes_ = std::min(bytes, piecesMax * pieceBytesMax); }

bool ReadAhead::holds(std::uint64_t offset) const
{
    return !pieces_.empty() && offset >= pieces_.front()->offset && offset < pieces_.back()->end();
}

void ReadAhead::note(std::uint64_t offset, std::uint64_t bytes, std::vector<Piece>& dropped)
{
    isSequential_ = hasRead_ && (offset == place_ || holds(offset));
    hasRead_ = true;
    place_ = offset + bytes;
    lastBytes_ = bytes;
    if (!isSequential_)
        clear(dropped);
    dropBefore(offset, dropped);
}

void ReadAhead::pass(std::vector<Piece>& dropped) { dropBefore(place_, dropped); }

void ReadAhead::dropBefore(std::uint64_t offset, std::vector<Piece>& dropped)
{
    while (!pieces_.empty() && pieces_.front()->end() <= offset) {
        dropped.push_back(pieces_.front());
        pieces_.pop_front();
    }
}

std::uint64_t ReadAhead::pieceBytes() const
{
    const std::uint64_t share = (bytes_ + piecesMax - 1) / piecesMax;
    return std::min(std::max({pieceBytesMin, lastBytes_, share}), pieceBytesMax);
}

ReadAhead::Range ReadAhead::missing(std::uint64_t fileBytes) const
{
    if (bytes_ == 0 || !isSequential_ || place_ >= fileBytes || pieces_.size() >= piecesMax)
        return {};
    const std::uint64_t next = pieces_.empty() ? place_ : std::max(place_, pieces_.back()->end());
    const std::uint64_t wanted = place_ + std::min(bytes_, fileBytes - place_);
    if (next >= wanted)
        return {};
    return {next, static_cast<unsigned>(std::min(pieceBytes(), fileBytes - next))};
}

void ReadAhead::clear(std::vector<Piece>& dropped)
{
    dropped.insert(dropped.end(), pieces_.begin(), pieces_.end());
    pieces_.clear();
}
