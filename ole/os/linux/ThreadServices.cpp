#include "os/linux/ThreadServices.h"

#include "os/linux/LinuxThreadEvent.h"
#include "os/linux/ThreadTable.h"

namespace {

class LinuxThreadServices final : public iThreadServices
{
public:
    // Events are for this process alone, so that a name has nothing to say.
    Qz::Ptr<iThreadEvent> createEvent(unsigned manualReset, unsigned signalled, const char*) override
    {
        return Qz::Ptr<iThreadEvent>(new LinuxThreadEvent(manualReset != 0, signalled != 0));
    }

    // The scheduler treats all threads alike: priority and flags are taken and left alone.
    unsigned createThread(Body body, const char* name, unsigned stackSize, void* argument, int,
                          unsigned) override
    {
        return threads_.start(body, name, stackSize, argument);
    }

    void endThread(unsigned id16) override { threads_.end(id16); }

private:
    ThreadTable threads_;
};

}  // namespace

iThreadServices* linuxThreadServices()
{
    static LinuxThreadServices* const services = new LinuxThreadServices;
    return services;
}
