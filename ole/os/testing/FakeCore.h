#pragma once

#include "os/testing/CallLog.h"
#include "os/testing/FakeClock.h"
#include "os/testing/FakePorts.h"
#include "os/testing/FakeTransfers.h"
#include "os/testing/FakeTree.h"
#include "os/testing/FaultPlan.h"
#include "os/testing/LiveCounts.h"

// FakeCore: what the parts of one fake platform share. Handles and events keep it alive, so that one that
// was left behind is harmless after the end of its FakeOS.
//
// Locks: each part has its own lock and calls no other part under it.
struct FakeCore
{
    fake::CallLog log;
    fake::FaultPlan faults;
    fake::LiveCounts live;
    fake::FakeTree tree;
    FakeClock clock{log};
    FakeTransfers transfers{*this};
    FakePorts ports;

    // The fault that makes this call fail or stop short; a delay has passed on return.
    [[nodiscard]] std::optional<fake::Fault> fault(fake::Op op, const LightweightString<wchar_t>& path = {})
    {
        std::optional<fake::Fault> met = faults.check(op, path);
        if (!met || met->effect != fake::Effect::delay)
            return met;
        clock.sleep(met->delayMs);
        return {};
    }
};
