#pragma once

#include "Qz/LightweightString.h"
#include "Qz/iObject.h"
#include "os/Export.h"

#include <cstdint>

// iDiskDrive: one mounted volume.
//
// Threads:    any. Space and state are asked of the system at each call, bounded in time for network
//             and user-space file systems: a volume that does not answer reports its last known space.
// Lifetime:   a description, not a lock: the volume may be unmounted while it lives.
class OS_API iDiskDrive : public iObject
{
public:
    // What kind of volume it is. Stored as 32 bits; callers compare the numbers.
    enum eType : unsigned {
        eUnknown = 0,    // none of the others
        eLocal = 1,      // a disk of this machine
        eRemovable = 2,  // one that is made to be taken out
        eNetwork = 3,    // on another machine
        eOptical = 4,    // a disc
    };

    // By the kind of its file system, and whether its device can be taken out.
    [[nodiscard]] virtual eType getType() const = 0;
    // Bytes; 512 when the device does not say. 0 only from platforms that know no better.
    [[nodiscard]] virtual std::uint32_t getSectorSize() const = 0;
    // Bytes that the caller may still fill; 0 when not known yet. A server that keeps no account of its
    // space counts as a terabyte, all of it free.
    [[nodiscard]] virtual std::uint64_t getFreeBytes() const = 0;
    // All bytes of the volume; 0 when not known yet, and a terabyte for such a server.
    [[nodiscard]] virtual std::uint64_t getTotalBytes() const = 0;
    // True for volumes that carry the system itself; media is never discovered there.
    [[nodiscard]] virtual bool isSystemDisk() const = 0;
    // True while the volume is in the mount table and answers.
    [[nodiscard]] virtual bool isMounted() const = 0;
    // Where it is mounted; always ends with the path separator.
    [[nodiscard]] virtual LightweightString<wchar_t> getRootPath() const = 0;
};
