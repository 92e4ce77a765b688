#pragma once

#include "Qz/InternalRefCount.h"
#include "os/linux/CacheGuess.h"
#include "os/linux/Transfer.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace os {
class FileServer;
}

// SharedDescriptor: the kernel's descriptors of one open file, closed by the last reference. The file
// object and each transfer under way hold one.
//
// A file that was opened with the unbuffered hint has a second descriptor for transfers whose position,
// length and memory fit the alignments that the kernel names; the others use the first. A file whose server
// cuts answers is read through one that takes any position, length and memory.
//
// Closing asks the server of the file system, where there is one, and waits for it no longer than any other
// question does.
class SharedDescriptor final : public Qz::InternalRefCount
{
public:
    // Takes fd over. server: of file systems whose server may stop answering, else null. Asks it.
    SharedDescriptor(int fd, std::shared_ptr<const os::FileServer> server);
    ~SharedDescriptor() override;

    // Opens the second descriptor where the file system offers unbuffered transfers; best effort.
    void enableDirect();

    // Lets reads go past what the kernel remembers of the file; best effort.
    void enableUncachedReads();

    [[nodiscard]] int fd() const { return fd_; }
    [[nodiscard]] int directFd() const { return directFd_; }
    // What os::readPastCache (UncachedRead.h) reads, -1 for files that are read as usual.
    [[nodiscard]] int uncachedFd() const { return uncachedFd_; }
    [[nodiscard]] const os::FileServer* server() const { return server_.get(); }
    [[nodiscard]] bool isRegular() const { return regular_; }
    // False for pipes and the like, which have no positions.
    [[nodiscard]] bool isSeekable() const { return seekable_; }
    // Of reads through the first descriptor.
    [[nodiscard]] CacheGuess& cacheGuess() const { return cacheGuess_; }
    [[nodiscard]] bool allowsDirect(std::uint64_t position, const void* memory, std::size_t count) const;

private:
    const int fd_;
    int directFd_ = -1;
    int uncachedFd_ = -1;                // fd_ itself for a file that is only read
    std::uint32_t memoryAlignment_ = 0;  // bytes
    std::uint32_t offsetAlignment_ = 0;  // bytes
    mutable CacheGuess cacheGuess_;
    const std::shared_ptr<const os::FileServer> server_;
    bool regular_ = false;
    bool seekable_ = false;
};
