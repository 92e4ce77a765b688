#pragma once

#include "os/linux/MountTable.h"
#include "os/linux/ScopedFd.h"

#include <sys/types.h>

#include <memory>
#include <mutex>
#include <string>

namespace os {

// MountTableReader: the mount table as it is now.
//
// Reading is expensive on a machine with many mounts and asked for at every open, so the table is kept
// and read again only after the kernel has told of a change.
//
// Threads: any. Errors: none; an unreadable table is empty.
class MountTableReader
{
public:
    explicit MountTableReader(std::string file);

    [[nodiscard]] std::shared_ptr<const MountTable> current();
    // How often the table has been read so far.
    [[nodiscard]] unsigned readCount();

private:
    void openFile();
    [[nodiscard]] bool hasChanged() const;
    void reload();

    std::mutex lock_;
    const std::string file_;
    ScopedFd fd_;
    pid_t owner_ = 0;  // the process that opened fd_
    std::shared_ptr<const MountTable> table_ = std::make_shared<MountTable>();
    unsigned reads_ = 0;
};

}  // namespace os
