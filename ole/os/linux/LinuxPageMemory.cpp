#include "os/linux/LinuxPageMemory.h"

#include "os/Codes.h"
#include "os/LastError.h"

#include <cerrno>

namespace {

class LinuxPageMemory final : public iPageMemory
{
public:
    [[nodiscard]] void* allocate(void* address, std::size_t size, unsigned type, unsigned protection) override
    {
        if (type != os::pagesReserveCommit || protection != os::pagesReadWrite) {
            setLastErrno(EINVAL);
            return nullptr;
        }
        return linuxPageCache().take(address, size);
    }

    bool release(void* memory, unsigned freeType) override
    {
        if (freeType != os::pagesRelease) {
            setLastErrno(EINVAL);
            return false;
        }
        return !memory || linuxPageCache().give(memory);
    }
};

}  // namespace

iPageMemory* linuxPageMemory()
{
    static LinuxPageMemory* const memory = new LinuxPageMemory;
    return memory;
}

PageCache& linuxPageCache()
{
    static PageCache* const cache = new PageCache;
    return *cache;
}
