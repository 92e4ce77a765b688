#pragma once

#include "os/iClock.h"
#include "os/iPageMemory.h"
#include "os/iThreadServices.h"

// Clock, page memory and thread services that pass every call on, so that a test overrides one method.
// The targets outlive them.

class ForwardingClock : public iClock
{
public:
    explicit ForwardingClock(iClock& target) : target_(target) {}
    std::uint32_t msecs() override { return target_.msecs(); }
    double msecsPrecise() override { return target_.msecsPrecise(); }
    void sleep(unsigned milliseconds) override { target_.sleep(milliseconds); }

private:
    iClock& target_;
};

class ForwardingPageMemory : public iPageMemory
{
public:
    explicit ForwardingPageMemory(iPageMemory& target) : target_(target) {}
    void* allocate(void* address, std::size_t size, unsigned type, unsigned protection) override
    {
        return target_.allocate(address, size, type, protection);
    }
    bool release(void* memory, unsigned freeType) override { return target_.release(memory, freeType); }

private:
    iPageMemory& target_;
};

class ForwardingThreadServices : public iThreadServices
{
public:
    explicit ForwardingThreadServices(iThreadServices& target) : target_(target) {}
    Qz::Ptr<iThreadEvent> createEvent(unsigned manualReset, unsigned signalled, const char* name) override
    {
        return target_.createEvent(manualReset, signalled, name);
    }
    unsigned createThread(Body body, const char* name, unsigned stackSize, void* argument, int priority,
                          unsigned flags) override
    {
        return target_.createThread(body, name, stackSize, argument, priority, flags);
    }
    void endThread(unsigned id16) override { target_.endThread(id16); }

private:
    iThreadServices& target_;
};
