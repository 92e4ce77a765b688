#pragma once

#include "media/ReadPiece.h"

#include <cstddef>
#include <span>

// The data of reads whose pieces have ended well.

// Copies all of it. REQUIRES: into is large enough.
void copyData(const PendingRead& read, std::span<std::byte> into);
// A view of it: of the piece's own memory where there is one piece, else of a copy; empty when there is no
// memory for that.
[[nodiscard]] MediaData viewData(const PendingRead& read);
// True when all of it was there when it was asked for: the engine answered from what it had read, or the
// read-ahead window had it.
[[nodiscard]] bool wasCached(const PendingRead& read);
