#include "ConnectionQueue.h"

#include "common/SystemFaults.h"

#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>

namespace {

using system_faults::Call;
using system_faults::Scope;

struct Served
{
    std::atomic<unsigned> on{0};      // the threads of the queue
    std::atomic<unsigned> beyond{0};  // turned away
};

// Ten connections, to their end.
void serve(Served& served)
{
    ConnectionQueue queue([] {});
    for (unsigned i = 0; i < 10; ++i)
        queue.enqueue([&served] { ++(ConnectionQueue::isOverload() ? served.beyond : served.on); });
    queue.shutdown();
}

}  // namespace

TEST(ConnectionQueue, ServesOnItsThreads)
{
    Served served;
    serve(served);
    EXPECT_EQ(served.on, 10U);
    EXPECT_EQ(served.beyond, 0U);
}

TEST(ConnectionQueue, ServesWithThoseThreadsThatCouldBeStarted)
{
    for (unsigned first = 2; first <= ConnectionQueue::threadsMax; ++first) {
        const Scope few({Call::startThread, EAGAIN, first, system_faults::Fault::forEver});
        Served served;
        serve(served);
        EXPECT_EQ(served.on, 10U);
        EXPECT_EQ(system_faults::fired(), 1U);
    }
}

TEST(ConnectionQueue, TurnsEverybodyAwayWithoutThreads)
{
    const Scope none({Call::startThread, EAGAIN, 1, system_faults::Fault::forEver});
    Served served;
    serve(served);
    EXPECT_EQ(served.on, 0U);
    EXPECT_EQ(served.beyond, 10U);
}
