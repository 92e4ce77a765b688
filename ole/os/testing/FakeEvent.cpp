#include "os/testing/FakeEvent.h"

#include "Qz/Utf8.h"
#include "os/testing/FakeCore.h"

#include <utility>

namespace {

using Lock = std::unique_lock<std::mutex>;

void note(FakeCore& core, fake::Op op, const fake::EventState& state, std::size_t count = 0)
{
    fake::Call call;
    call.op = op;
    call.handle = state.number;
    call.count = count;
    core.log.add(call);
}

void letFirstThrough(fake::EventState& state)
{
    *state.waiters.front() = true;
    state.waiters.pop_front();
    --state.record.waiting;
}

}  // namespace

FakeEvent::FakeEvent(std::shared_ptr<FakeCore> core, std::shared_ptr<fake::EventState> state)
    : core_(std::move(core)), state_(std::move(state))
{
    ++core_->live.events;
}

FakeEvent::~FakeEvent()
{
    --core_->live.events;
    const Lock lock(core_->clock.mutex());
    state_->record.alive = false;
}

void FakeEvent::set()
{
    // The waiter that is let through may destroy this object before the last line.
    const std::shared_ptr<FakeCore> core = core_;
    const std::shared_ptr<fake::EventState> state = state_;
    note(*core, fake::Op::setEvent, *state);
    const Lock lock(core->clock.mutex());
    ++state->record.sets;
    if (state->record.manualReset != 0) {
        state->record.signalled = true;
        while (!state->waiters.empty())
            letFirstThrough(*state);
    } else if (state->waiters.empty()) {
        state->record.signalled = true;
    } else {
        letFirstThrough(*state);
    }
    core->clock.notify();
}

void FakeEvent::reset()
{
    note(*core_, fake::Op::resetEvent, *state_);
    const Lock lock(core_->clock.mutex());
    ++state_->record.resets;
    state_->record.signalled = false;
}

void FakeEvent::wait() { waitFor(std::nullopt); }

bool FakeEvent::wait(unsigned timeoutMs) { return waitFor(timeoutMs); }

bool FakeEvent::waitFor(std::optional<unsigned> timeoutMs)
{
    const std::shared_ptr<FakeCore> core = core_;
    const std::shared_ptr<fake::EventState> state = state_;
    bool through = false;
    {
        Lock lock(core->clock.mutex());
        const double startedMs = core->clock.nowLocked();
        ++state->record.waits;
        if (state->record.signalled) {
            state->record.signalled = state->record.manualReset != 0;
            through = true;
        } else {
            state->waiters.push_back(&through);
            ++state->record.waiting;
            if (!core->clock.block(
                    lock, [&] { return through; }, timeoutMs, true)) {
                state->waiters.remove(&through);
                --state->record.waiting;
            }
        }
        core->clock.recordLocked(
            {state->number, timeoutMs, through, startedMs, core->clock.nowLocked() - startedMs});
    }
    note(*core, fake::Op::waitEvent, *state, timeoutMs.value_or(0));
    return through;
}
