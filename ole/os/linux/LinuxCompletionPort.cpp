#include "os/linux/LinuxCompletionPort.h"

#include "os/LastError.h"
#include "os/linux/LinuxFile.h"
#include "os/linux/PortState.h"

#include <algorithm>
#include <cerrno>

namespace {

// A command may wait for another completion of its port, so there are never fewer threads.
constexpr int threadsAtLeast = 3;

class LinuxCompletionPort final : public iCompletionPort
{
public:
    explicit LinuxCompletionPort(const Qz::Ptr<PortState>& state) : state_(state) {}
    ~LinuxCompletionPort() override { state_->shutDown(); }

    bool attach(const Qz::Ptr<iFile>& file) override
    {
        auto* linuxFile = dynamic_cast<LinuxFile*>(file.get());
        if (linuxFile && state_->isOpen() && linuxFile->attachTo(state_))
            return true;
        setLastErrno(EINVAL);
        return false;
    }

    void shutDown() override { state_->shutDown(); }

private:
    const Qz::Ptr<PortState> state_;
};

}  // namespace

Qz::Ptr<iCompletionPort> createLinuxCompletionPortOn(IoBackend backend, const char* name,
                                                     const IOCompletionCommand& command, int minThreads)
{
    const auto threads = static_cast<unsigned>(std::max(minThreads, threadsAtLeast));
    const Qz::Ptr<PortState> state(new PortState(backend, name, command, threads));
    state->start();
    return Qz::Ptr<iCompletionPort>(new LinuxCompletionPort(state));
}

// The most threads, the concurrency and the priority do not matter here: the port sizes itself, and the
// kernel schedules.
Qz::Ptr<iCompletionPort> createLinuxCompletionPort(const char* name, const IOCompletionCommand& command,
                                                   int minThreads, int, int, int)
{
    return createLinuxCompletionPortOn(backendChoice().backend, name, command, minThreads);
}
