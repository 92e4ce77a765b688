#include "os/linux/LinuxOS.h"

#include "os/linux/BoundedCalls.h"
#include "os/linux/LinuxClock.h"
#include "os/linux/LinuxCompletionPort.h"
#include "os/linux/LinuxFileManager.h"
#include "os/linux/LinuxPageMemory.h"
#include "os/linux/MountTableReader.h"
#include "os/linux/ThreadServices.h"

namespace {

constexpr unsigned callLimitMs = 2000;

class LinuxOS final : public iOperatingSystem
{
public:
    iFileManager* getFileManager() override { return &files_; }
    iThreadServices* getThreadServices() override { return linuxThreadServices(); }
    iClock* getClock() override { return linuxClock(); }
    iPageMemory* getPageMemory() override { return linuxPageMemory(); }
    Qz::Ptr<iCompletionPort> createCompletionPort(const char* name, const IOCompletionCommand& command,
                                                  int minThreads, int maxThreads, int concurrency,
                                                  int priority) override
    {
        return createLinuxCompletionPort(name, command, minThreads, maxThreads, concurrency, priority);
    }

private:
    os::MountTableReader mounts_{"/proc/self/mountinfo"};
    os::BoundedCalls calls_{callLimitMs};
    os::LinuxFileManager files_{mounts_, calls_};
};

}  // namespace

iOperatingSystem* linuxOS()
{
    static LinuxOS* const instance = new LinuxOS;
    return instance;
}
