#pragma once

#include "os/iThreadEvent.h"

#include <list>
#include <memory>
#include <optional>
#include <string>

struct FakeCore;

namespace fake {

// What is known of an event, also after its end.
struct EventRecord
{
    unsigned manualReset = 0;  // arguments of its creation
    unsigned initiallySignalled = 0;
    std::string name;
    bool hasName = false;  // false: created with a null name
    unsigned sets = 0;
    unsigned resets = 0;
    unsigned waits = 0;
    unsigned waiting = 0;  // waiters that have not been let through
    bool signalled = false;
    bool alive = true;
};

// Inside of an event; guarded by the clock's mutex.
struct EventState
{
    EventRecord record;
    unsigned number = 0;
    std::list<bool*> waiters;  // each one's "released" flag, in order of arrival
};

}  // namespace fake

// FakeEvent: an event whose waits follow the fake clock (see FakeClock).
//
// set lets through those who wait at that moment (auto-reset: the longest waiting one only), so a reset
// right behind it takes nothing back; without a waiter it is remembered.
class FakeEvent : public iThreadEvent
{
public:
    FakeEvent(std::shared_ptr<FakeCore> core, std::shared_ptr<fake::EventState> state);
    ~FakeEvent() override;

    void set() override;
    void reset() override;
    void wait() override;
    bool wait(unsigned timeoutMs) override;

private:
    bool waitFor(std::optional<unsigned> timeoutMs);

    std::shared_ptr<FakeCore> core_;
    std::shared_ptr<fake::EventState> state_;
};
