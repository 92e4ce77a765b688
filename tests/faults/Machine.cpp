#include "Machine.h"

#include "fsys/EngineFixture.h"

#include <algorithm>
#include <utility>

namespace {

constexpr double tickMs = 50;

// The 1st, 2nd, 3rd ... transfer takes so long: short enough to overtake each other.
double latencyMs(unsigned number) { return 1 + (number * 7) % 5; }

}  // namespace

struct Machine::State
{
    FakeOS& os;
    double startMs;
    double limitMs;
    std::function<void()> onHang;
    unsigned seen = 0;  // number of the last transfer that has been noticed
    unsigned pollsHeld = 0;
    bool passing = false;
    bool gone = false;

    [[nodiscard]] bool hasThread(const FsysPoll& poll) const
    {
        const auto threads = os.threads().threads();
        return std::any_of(threads.begin(), threads.end(), [&](const fake::ThreadRecord& thread) {
            return thread.argument == &poll && !thread.ended;
        });
    }
    void pass()
    {
        if (!theFsys.load() || pollsHeld != 0 || passing)
            return;
        passing = true;
        for (FsysPoll* const poll : {&FsysTestAccess::readPoll(), &FsysTestAccess::writePoll()})
            if (hasThread(*poll))
                poll->Polltasks();
        passing = false;
    }
    void end(unsigned number)
    {
        const auto held = os.transfers().held();
        const auto found = std::find_if(held.begin(), held.end(),
                                        [&](const auto& transfer) { return transfer.number == number; });
        if (!gone && found != held.end())
            os.transfers().completeAt(static_cast<std::size_t>(found - held.begin()));
    }
};

Machine::Machine(FakeOS& os, double limitMs, std::function<void()> onHang)
    : state_(std::make_shared<State>(
          State{os, os.clock().msecsPrecise(), limitMs, std::move(onHang), os.transfers().accepted()}))
{
    os.clock().setIdleHandler([state = state_] { return serve(state); });
    tick(state_);
}

Machine::~Machine()
{
    state_->gone = true;
    state_->os.clock().setIdleHandler({});
}

void Machine::tick(const std::shared_ptr<State>& state)
{
    state->os.clock().after(tickMs, [state] {
        if (state->gone)
            return;
        if (state->os.clock().msecsPrecise() - state->startMs > state->limitMs)
            state->onHang();
        serve(state);
        tick(state);
    });
}

void Machine::holdPolls(bool held) { state_->pollsHeld += held ? 1 : -1U; }

double Machine::elapsedMs() const { return state_->os.clock().msecsPrecise() - state_->startMs; }

bool Machine::serve(const std::shared_ptr<State>& state)
{
    state->pass();
    if (state->os.transfers().accepted() == state->seen)
        return false;
    for (const fake::HeldTransfer& transfer : state->os.transfers().held())
        if (transfer.number > state->seen)
            plan(state, transfer);
    state->seen = state->os.transfers().accepted();
    return true;
}

void Machine::plan(const std::shared_ptr<State>& state, const fake::HeldTransfer& transfer)
{
    double takesMs = latencyMs(transfer.number);
    if (const auto fault = state->os.faults().checkAccepted(transfer.path)) {
        if (fault->effect == fake::Effect::drop)
            return;
        takesMs += fault->delayMs;
    }
    state->os.clock().after(takesMs, [state, number = transfer.number] { state->end(number); });
}
