#pragma once

#include "os/testing/FakeOS.h"

#include <functional>
#include <memory>

// Machine: plays the poll threads and the disk of a fake platform whose time is virtual, all on the driving
// thread, so that a run is the same each time.
//
// Polls:      a pass over both lists whenever the driving thread waits for something, and every 50 ms. None
//             for a poll whose thread could not be started, and none while they are held.
// Disk:       each accepted transfer ends a few milliseconds later, not in the order of acceptance; delays
//             and drops of the fault plan apply.
// The end:    of a run that goes on for longer than the limit is a hang, reported once to onHang, which does
//             not return.
// Lifetime:   the platform outlives it.
class Machine
{
public:
    Machine(FakeOS& os, double limitMs, std::function<void()> onHang);
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    // Both polls make no pass: another thread holds the lists.
    void holdPolls(bool held);
    // Virtual milliseconds since the start.
    [[nodiscard]] double elapsedMs() const;

private:
    struct State;
    static void tick(const std::shared_ptr<State>& state);
    // A pass, and notice of what it started; true when there was any.
    static bool serve(const std::shared_ptr<State>& state);
    static void plan(const std::shared_ptr<State>& state, const fake::HeldTransfer& transfer);

    std::shared_ptr<State> state_;  // shared with actions of the clock
};
