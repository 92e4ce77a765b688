#pragma once

#include "Qz/Ptr.h"
#include "media/ReadPiece.h"

#include <cstdint>
#include <deque>
#include <vector>

// ReadAhead: decides what a sequential reader will want next, and knows the pieces of it.
//
// The window is a run of pieces without gaps. It begins with the piece that holds the end of the last read.
// A read that begins inside the window, also behind its place (a player that leaves out a frame), goes on
// with it; one that begins elsewhere ends it.
//
// Threads:    one at a time.
class ReadAhead
{
public:
    using Piece = Qz::Ptr<ReadPiece>;
    struct Range
    {
        std::uint64_t offset = 0;
        unsigned bytes = 0;  // 0: none
    };

    // 0 reads nothing ahead.
    void setBytes(std::uint64_t bytes);
    // A caller reads bytes at offset. Pieces that are of no use to it leave the window into dropped.
    void note(std::uint64_t offset, std::uint64_t bytes, std::vector<Piece>& dropped);
    // That read has taken its share of the window: what lies before its end leaves into dropped.
    void pass(std::vector<Piece>& dropped);
    // What to read next for the window in a file of so many bytes; add() it and ask again.
    [[nodiscard]] Range missing(std::uint64_t fileBytes) const;
    void add(const Piece& piece) { pieces_.push_back(piece); }
    [[nodiscard]] const std::deque<Piece>& pieces() const { return pieces_; }
    void clear(std::vector<Piece>& dropped);

private:
    [[nodiscard]] bool holds(std::uint64_t offset) const;
    void dropBefore(std::uint64_t offset, std::vector<Piece>& dropped);
    [[nodiscard]] std::uint64_t pieceBytes() const;

    std::uint64_t bytes_ = 0;
    bool hasRead_ = false;
    bool isSequential_ = false;
    std::uint64_t place_ = 0;      // the end of the last read
    std::uint64_t lastBytes_ = 0;  // its size
    std::deque<Piece> pieces_;
};
