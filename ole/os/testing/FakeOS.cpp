#include "os/testing/FakeOS.h"

FakeOS::FakeOS(Mode mode) : core_(std::make_shared<FakeCore>()), files_(core_), pages_(core_), threads_(core_)
{
    if (mode == Mode::manual)
        return;
    core_->clock.useRealTime();
    core_->transfers.setAutomatic(true);
    threads_.useRealThreads();
}

FakeOS::~FakeOS()
{
    core_->transfers.join();
    core_->transfers.abandon();
    core_->ports.abandon();
}

Qz::Ptr<iCompletionPort> FakeOS::createCompletionPort(const char* name, const IOCompletionCommand& command,
                                                      int minThreads, int maxThreads, int concurrency,
                                                      int priority)
{
    return core_->ports.create(core_, name, command, minThreads, maxThreads, concurrency, priority);
}
