#pragma once

#include "os/iDiskDrive.h"

#include <string_view>

namespace os {

// FileSystemKinds: what the name of a file-system type and a mount point tell. All file systems in user
// space share one magic number, so only the name in the mount table tells them apart.

// Optical for disc formats, network for remote ones, local for all others.
[[nodiscard]] iDiskDrive::eType driveTypeOf(std::string_view fsType);
// True for the kernel's own tables and for views of other mounts: nothing is stored there.
[[nodiscard]] bool isPseudoFileSystem(std::string_view fsType);
// True when an operation waits for a server, and so for ever when the server hangs.
[[nodiscard]] bool mayHang(std::string_view fsType);
// True when trouble on the way to the server shows as an answer that is too short, and not as an error. The
// kernel takes it for the end of the file, keeps zeros for what lies behind, and at times serves them.
[[nodiscard]] bool cutsAnswers(std::string_view fsType);
// True for mount points that belong to the system itself.
[[nodiscard]] bool isSystemMountPoint(std::string_view mountPoint);

}  // namespace os
