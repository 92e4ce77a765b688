// The part of MediaWriter::Recording that replaces bytes.

#include "media/Recording.h"
#include "os/LastError.h"
#include "os/Patience.h"

#include <algorithm>
#include <array>

bool MediaWriter::Recording::rewrite(std::uint64_t offset, std::span<const std::byte> data)
{
    const os::Patience patience(stallLimitMs_);
    if (!isWritable() || offset > accepted_ || data.size() > accepted_ - offset)
        return false;
    // A block that has not been handed out is changed where it is, also when a flush wrote it before: it
    // goes to the disk again as a whole.
    const std::uint64_t inMemory = current_ ? current_->position() : nextBlock_;
    const std::size_t before =
        offset < inMemory ? static_cast<std::size_t>(std::min<std::uint64_t>(data.size(), inMemory - offset))
                          : 0;
    if (before != 0 && !rewriteOnDisk(offset, data.first(before)))
        return false;
    if (before != data.size())
        current_->replace(offset + before, data.subspan(before));
    rewritten_ = rewritten_ || !data.empty();
    return true;
}

bool MediaWriter::Recording::rewriteOnDisk(std::uint64_t offset, std::span<const std::byte> data)
{
    // A transfer that is under way would put the old bytes back.
    if (!waitUntilAtMost(0))
        return false;
    std::size_t done = 0;
    if (file_.handle().write(offset, data.data(), data.size(), &done) && done == data.size())
        return true;
    failToWrite(lastError());
    return false;
}

std::string MediaWriter::Recording::hashOfFile()
{
    ContentHash hash;
    std::array<std::byte, 65'536> piece;
    for (std::uint64_t at = 0; at < accepted_;) {
        const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), accepted_ - at));
        if (!file_.handle().read(at, piece.data(), part, nullptr))
            return {};
        hash.add(std::span(piece).first(part));
        at += part;
    }
    return hash.text();
}
