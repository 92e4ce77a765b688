#pragma once

#include <cstddef>
#include <cstdint>

class SharedDescriptor;

enum class TransferKind : std::uint8_t { read, write };

// Transfer: what is to be moved between a file and memory, and how far it has come.
//
// The kernel moves less than it was asked for on many occasions: requests above 2 GiB, full volumes,
// network servers in trouble. The rest is asked for again until all is moved, the file ends or an error
// comes; the caller sees one outcome.
// Threads:    one at a time.
class Transfer
{
public:
    // What to ask the kernel for next.
    struct Step
    {
        int fd;
        void* memory;
        unsigned count;          // bytes; at most 1 GiB
        std::uint64_t position;  // bytes
        bool onWorker;           // must not run inside the submission
        bool pastCache;          // a read that is carried out by readPastCache (UncachedRead.h)
    };

    Transfer() = default;
    Transfer(const SharedDescriptor* file, TransferKind kind, std::uint64_t position, void* memory,
             std::size_t count)
        : file_(file),
          memory_(static_cast<std::byte*>(memory)),
          position_(position),
          count_(count),
          kind_(kind)
    {}

    // True when position and count stay below 2^63: a larger position means "here" to the kernel.
    [[nodiscard]] bool isValid() const;

    // REQUIRES: not finished.
    [[nodiscard]] Step nextStep();
    // A read through the page cache that is likely to be a copy and no more, of a length that is worth
    // another thread.
    [[nodiscard]] bool mayBeCached() const;
    // Copies what the page cache has without waiting for a disk. True when the transfer has ended; else it
    // goes on with nextStep. REQUIRES: mayBeCached.
    [[nodiscard]] bool copyCached();
    // Takes what the kernel answered to the last step: bytes, or a negated errno. True when the transfer
    // has ended.
    [[nodiscard]] bool advance(std::int64_t result);
    // Ends the transfer with an error.
    void fail(int errorNumber) { error_ = errorNumber; }

    // Zeroes what a read did not fill: the memory may hold bytes of another file.
    void clearRest();

    [[nodiscard]] TransferKind kind() const { return kind_; }
    [[nodiscard]] bool isSeekable() const;
    // The file's server may stop answering.
    [[nodiscard]] bool isSlow() const;
    // That server, for comparison with others; null for a file of this machine.
    [[nodiscard]] const void* serverIdentity() const;
    [[nodiscard]] bool succeeded() const { return error_ == 0; }
    [[nodiscard]] int error() const { return error_; }          // errno, 0 for none
    [[nodiscard]] std::size_t done() const { return done_; }    // bytes
    [[nodiscard]] std::size_t count() const { return count_; }  // bytes
    // Never unbuffered from here on.
    void stayBuffered() { mayBeDirect_ = false; }

private:
    // Nothing came: is it the end of the file? Asks the server.
    [[nodiscard]] bool endsHere() const;

    const SharedDescriptor* file_ = nullptr;
    std::byte* memory_ = nullptr;
    std::uint64_t position_ = 0;
    std::size_t count_ = 0;
    std::size_t done_ = 0;
    int error_ = 0;
    unsigned refusals_ = 0;  // in a row, without a byte moved
    TransferKind kind_ = TransferKind::read;
    bool mayBeDirect_ = true;
    bool direct_ = false;  // the step under way is unbuffered
};

// Carries a transfer out on this thread, waiting as long as it takes.
void runTransfer(Transfer& transfer);
