#include "Engine.h"

#include "Qz/Shutdown.h"
#include "Raised.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "fsys/SystemCache.h"

#include <atomic>
#include <condition_variable>

namespace {

enum class State { stopped, running, stopping };

// Never destroyed: threads that wait for the end of the process may still hold a Use.
struct Life
{
    std::mutex guard;
    std::condition_variable changed;
    State state = State::stopped;
    unsigned uses = 0;
    LightweightString<wchar_t> space;
    std::mutex changing;
};

Life& life()
{
    static Life& lasting = *new Life;
    return lasting;
}

std::atomic<bool> lost{false};

MediaError notRunning()
{
    return {MediaErrorCode::engineNotRunning, 0,
            lost ? "a forked process cannot use the session of its parent"
                 : "no session is open: call fsys.open"};
}

}  // namespace

namespace engine {

void start(const LightweightString<wchar_t>& space, bool discovery)
{
    refuseAfterFork();
    std::unique_lock hold(life().guard);
    life().changed.wait(hold, [] { return life().state != State::stopping; });
    if (life().state == State::running)
        throw Raised("alreadyOpen", "a session is open already; there is one in a process");
    FsysInitialize();
    // What an earlier session knew: the start of the registry adds to the index and takes nothing out.
    SystemCache::invalidate();
    DiskManager::init(space, !discovery);
    life().space = space;
    life().state = State::running;
}

void stop()
{
    if (lost)
        return;
    std::unique_lock hold(life().guard);
    if (life().state != State::running)
        return;
    life().state = State::stopping;
    life().changed.wait(hold, [] { return life().uses == 0; });
    hold.unlock();
    Shutdown::run(Shutdown::eNormalExit);
    hold.lock();
    life().state = State::stopped;
    life().changed.notify_all();
}

bool isRunning()
{
    if (lost)
        return false;
    const std::lock_guard hold(life().guard);
    return life().state == State::running;
}

LightweightString<wchar_t> space()
{
    const std::lock_guard hold(life().guard);
    return life().space;
}

void loseAfterFork() { lost = true; }
bool isLost() { return lost; }

void refuseAfterFork()
{
    if (lost)
        throw Raised(notRunning());
}

Use::Use()
{
    refuseAfterFork();
    const std::lock_guard hold(life().guard);
    if (life().state != State::running)
        throw Raised(notRunning());
    ++life().uses;
}

Use::~Use()
{
    if (lost)
        return;
    const std::lock_guard hold(life().guard);
    if (--life().uses == 0)
        life().changed.notify_all();
}

std::unique_lock<std::mutex> changing() { return std::unique_lock(life().changing); }

}  // namespace engine
