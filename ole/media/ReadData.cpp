#include "media/ReadData.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

namespace {

class HeapMemory : public iMemHolder
{
public:
    explicit HeapMemory(unsigned size) : memory_(new (std::nothrow) unsigned char[size]), size_(size) {}

    [[nodiscard]] unsigned char* getBuffer() const override { return memory_.get(); }
    [[nodiscard]] unsigned getSize() const override { return memory_ ? size_ : 0; }
    [[nodiscard]] unsigned getUsed() const override { return getSize(); }
    void setUsed(unsigned /*bytes*/) override {}

private:
    const std::unique_ptr<unsigned char[]> memory_;
    const unsigned size_;
};

}  // namespace

void copyData(const PendingRead& read, std::span<std::byte> into)
{
    for (const Qz::Ptr<ReadPiece>& piece : read.pieces) {
        const std::uint64_t from = std::max(piece->offset, read.offset);
        const std::uint64_t to = std::min(piece->end(), read.end());
        std::memcpy(into.data() + (from - read.offset), piece->data->getBuffer() + (from - piece->offset),
                    to - from);
    }
}

MediaData viewData(const PendingRead& read)
{
    if (read.pieces.size() == 1) {
        const ReadPiece& piece = *read.pieces.front();
        return {piece.data, read.offset - piece.offset, read.bytes};
    }
    const Qz::Ptr<iMemHolder> memory(new HeapMemory(read.bytes));
    if (!memory->getBuffer())
        return {};
    copyData(read, std::as_writable_bytes(std::span(memory->getBuffer(), read.bytes)));
    return {memory, 0, read.bytes};
}

bool wasCached(const PendingRead& read)
{
    return read.cached && std::all_of(read.pieces.begin(), read.pieces.end(),
                                      [](const auto& piece) { return piece->madeAhead || piece->wasAtOnce; });
}
