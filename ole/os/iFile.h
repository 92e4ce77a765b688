#pragma once

#include "Qz/Ptr.h"
#include "Qz/iObject.h"
#include "os/Export.h"
#include "os/iAsyncContext.h"

#include <cstddef>
#include <cstdint>

// FILE_INFO: what getInfo fills in. The size stands first; callers that know only the size rely on it.
struct FILE_INFO
{
    std::uint64_t size = 0;       // bytes
    std::int64_t modifiedNs = 0;  // nanoseconds since 1970
    std::uint64_t inode = 0;      // number of the file on its volume
    std::uint64_t device = 0;     // number of the volume
    std::uint64_t links = 0;      // names that the file has; 0 once the last one was removed
};

// iFile: an open file of the platform.
//
// Threads:    positioned operations from any threads at once.
// Lifetime:   closed by the last reference. Accepted transfers finish on references of their own, and
//             their completions are still delivered.
// Errors:     an operation that fails sets the thread's last error (LastError.h).
// Time:       on network and user-space file systems operations end as those of iFileManager do; synchronous
//             reads, writes and flushes after a minute. An asynchronous transfer ends when the server
//             answers.
// Positions:  bytes from the start; a position above 2^63 - 1 fails with EINVAL.
class OS_API iFile : public iObject
{
public:
    // False from close on, and for a file that could not be opened.
    [[nodiscard]] virtual bool isOpen() const = 0;

    // Reads up to count bytes at position. True when at least one byte was read, or count is 0; false at
    // the end of the file and on errors. Short only at the end of the file. *done, where given, tells the
    // bytes read, also after a failure.
    virtual bool read(std::uint64_t position, void* buffer, std::size_t count, std::size_t* done) = 0;

    // Writes count bytes at position, extending the file where needed. True when all were written;
    // *done, where given, tells the bytes written, also after a failure.
    virtual bool write(std::uint64_t position, const void* buffer, std::size_t count, std::size_t* done) = 0;

    // False leaves *info untouched.
    virtual bool getInfo(FILE_INFO* info) = 0;
    // Size now, in bytes; 0 on failure.
    [[nodiscard]] virtual std::uint64_t getSize() = 0;

    // True when all that was written to the file, through any handle, is on the device. After a failure
    // nobody knows what is.
    [[nodiscard]] virtual bool flush() = 0;
    // Cuts the file off or lengthens it by zero bytes.
    [[nodiscard]] virtual bool setSize(std::uint64_t bytes) = 0;
    // Bytes from the start up to the first that nobody ever wrote. The size when there is no such byte, or
    // the file system keeps no account of them; one that stores written zeros as nothing counts them as not
    // written. False leaves *bytes untouched.
    [[nodiscard]] virtual bool getWrittenSize(std::uint64_t* bytes) = 0;
    // Claims the file for this handle until it is closed or the process ends: true for the first handle
    // that asks. Others read and write as before; only their claims fail, with EWOULDBLOCK. Across machines
    // it holds where the file system carries such claims. REQUIRES: opened for writing.
    [[nodiscard]] virtual bool claim() = 0;

    // Bit 0 (os::capabilityAsync): the file can serve asynchronous transfers. This describes the file,
    // not the mode of this handle: a regular file answers 1 however it was opened, directly opened
    // files (pipes, devices) answer 0.
    [[nodiscard]] virtual unsigned getAsyncCapability() const = 0;

    // Starts a transfer. True: accepted, and exactly one completion will be delivered on a thread of the
    // attached port, never inside this call. False: refused, last error set, no completion.
    // Refused are closed files, files not opened with os::modeAsync, and files without a live port.
    // The completion of a transfer that moved all bytes, or as many as the file holds, is a success; a
    // read at or past the end succeeds with 0 bytes. Bytes of the buffer behind those counted are zero
    // or untouched, never old contents of other files.
    // REQUIRES: buffer stays valid until the completion has been executed.
    virtual bool asyncRead(std::uint64_t position, void* buffer, std::size_t count,
                           const Qz::Ptr<iAsyncContext>& context) = 0;
    // The same for a write. One of which not all bytes could be written is a failure.
    virtual bool asyncWrite(std::uint64_t position, const void* buffer, std::size_t count,
                            const Qz::Ptr<iAsyncContext>& context) = 0;

    // Reads, writes and transfers fail from here on; accepted transfers go on. The descriptor goes when
    // the last of them is done.
    virtual void close() = 0;
};
