#include "Gil.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace {

// Threads that may ask for the interpreter's lock at this moment or sit inside as guests.
std::atomic<unsigned> entering{0};
std::atomic<bool> ending{false};
std::atomic<std::thread::id> endingThread{};
// How often this thread is inside as a guest: it is waited for, so it must be let in again.
thread_local unsigned guestDepth = 0;

// True: the way in is open, and entering counts the caller until it has called wayInDone. The count comes
// first, so that interpreterEnds either sees it or is seen.
bool takeWayIn()
{
    entering.fetch_add(1);
    if (!ending.load() || guestDepth > 0 || endingThread.load() == std::this_thread::get_id())
        return true;
    entering.fetch_sub(1);
    return false;
}

void wayInDone() { entering.fetch_sub(1); }

[[noreturn]] void waitForTheEndOfTheProcess()
{
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}

}  // namespace

namespace gil {

Outside::Outside() : state_(PyEval_SaveThread()) {}

Outside::~Outside()
{
    if (!takeWayIn())
        waitForTheEndOfTheProcess();
    PyEval_RestoreThread(state_);
    wayInDone();
}

Inside::Inside()
{
    if (!takeWayIn())
        return;
    state_ = PyGILState_Ensure();
    ++guestDepth;
    entered_ = true;
}

Inside::~Inside()
{
    if (!entered_)
        return;
    --guestDepth;
    PyGILState_Release(state_);
    wayInDone();
}

void interpreterEnds()
{
    endingThread = std::this_thread::get_id();
    ending = true;
    PyThreadState* const state = PyEval_SaveThread();
    while (entering.load() != 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    PyEval_RestoreThread(state);
}

}  // namespace gil
