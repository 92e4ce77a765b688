#pragma once

#include "os/linux/BoundedCalls.h"

#include <cstddef>
#include <string>

namespace os {

// What the answers of a file system may be where its server is in trouble (FileSystemKinds.h).
enum class Answers {
    whole,        // there is no server
    cut,          // too short, without being the end of the file
    lostAsZeros,  // and the kernel keeps zeros for the rest: it is read past the kernel's memory
};

// Reads a regular file of at most limit bytes. Never waits for a pipe or a device that stands in its
// place (EINVAL). A longer file fails (EFBIG), and one whose server does not give all of it (EIO). contents
// is empty after a failure, and the last error set.
bool readRegularFile(const std::string& path, std::size_t limit, std::string& contents, Progress& progress,
                     Answers answers = Answers::whole);

}  // namespace os
