#pragma once

#include <cstddef>
#include <cstdint>

namespace os {

// UncachedRead: reads what the server has, and never what the kernel made of an earlier answer.
//
// An unbuffered read that a thread waits for is finished from the page cache when the server's answer is too
// short, and the cache may hold zeros in place of bytes that were lost on the way. The kernel does not do
// that to an asynchronous read, so this starts one and waits for it.
//
// Threads: any; each thread that comes here has a queue of the kernel of its own until it ends.

// At most count bytes at a position of a file that is open without buffering, of any alignment that its
// file system takes. Bytes, fewer when the answer was short, or a negated errno.
[[nodiscard]] std::int64_t readPastCache(int fd, void* memory, std::size_t count, std::uint64_t position);

// Nothing came from a position: is it the end of the file? Asks the server, which may have answered with less
// than it was asked for; then what the kernel remembers of the count bytes behind the position is forgotten.
[[nodiscard]] bool endsAt(int fd, std::uint64_t position, std::size_t count);

}  // namespace os
