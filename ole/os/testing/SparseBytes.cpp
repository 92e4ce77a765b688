#include "os/testing/SparseBytes.h"

#include <algorithm>
#include <cstring>

namespace fake {

void SparseBytes::extend(std::uint64_t size) { size_ = std::max(size_, size); }

void SparseBytes::resize(std::uint64_t size)
{
    if (size < size_) {
        chunks_.erase(chunks_.lower_bound((size + chunkBytes - 1) / chunkBytes), chunks_.end());
        if (const auto last = chunks_.find(size / chunkBytes); last != chunks_.end())
            last->second.resize(std::min(last->second.size(), static_cast<std::size_t>(size % chunkBytes)));
    }
    size_ = size;
}

std::uint64_t SparseBytes::written() const
{
    std::uint64_t next = 0;
    for (const auto& [index, chunk] : chunks_) {
        if (index != next)
            break;
        ++next;
    }
    return std::min(size_, next * chunkBytes);
}

std::size_t SparseBytes::read(std::uint64_t position, void* buffer, std::size_t count) const
{
    if (position >= size_ || count == 0)
        return 0;
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, size_ - position));
    char* out = static_cast<char*>(buffer);
    std::memset(out, 0, count);
    for (std::size_t done = 0; done < count;) {
        const std::uint64_t index = (position + done) / chunkBytes;
        const auto offset = static_cast<std::size_t>((position + done) % chunkBytes);
        const std::size_t here = std::min(count - done, chunkBytes - offset);
        const auto chunk = chunks_.find(index);
        if (chunk != chunks_.end() && chunk->second.size() > offset)
            chunk->second.copy(out + done, here, offset);
        done += here;
    }
    return count;
}

void SparseBytes::write(std::uint64_t position, const void* buffer, std::size_t count)
{
    const char* in = static_cast<const char*>(buffer);
    for (std::size_t done = 0; done < count;) {
        std::string& chunk = chunks_[(position + done) / chunkBytes];
        const auto offset = static_cast<std::size_t>((position + done) % chunkBytes);
        const std::size_t here = std::min(count - done, chunkBytes - offset);
        if (chunk.size() < offset + here)
            chunk.resize(offset + here);
        chunk.replace(offset, here, in + done, here);
        done += here;
    }
    if (count != 0)
        extend(position + count);
}

}  // namespace fake
