#pragma once

#include "Qz/LightweightString.h"

#include <mutex>

// Engine: the libraries at work, from start to stop, and who is at work with them.
//
// Threads:    any.
// Locks:      changing() before everything of the libraries; nothing of this waits with the interpreter's
// lock. Errors:     throws Raised.
namespace engine {

// Fills the registry and the index from a project space, whose folder exists. Throws "alreadyOpen" when it
// runs.
void start(const LightweightString<wchar_t>& space, bool discovery);
// Ends it when the last Use has gone; nobody gets a new one from the call on. Nothing when it does not run.
void stop();
[[nodiscard]] bool isRunning();
[[nodiscard]] LightweightString<wchar_t> space();

// In a child that was forked off, the engine's threads are missing: nothing may be used, or even ended,
// again.
void loseAfterFork();
[[nodiscard]] bool isLost();
// Throws "engineNotRunning" in such a child. To be called before any lock is waited for: another thread of
// the parent may have held it.
void refuseAfterFork();

// Keeps the engine from ending. Throws "engineNotRunning" when it does not run.
class Use
{
public:
    Use();
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
};

// For what changes the registry of locations: that is for one thread at a time. REQUIRES: gil::Outside.
[[nodiscard]] std::unique_lock<std::mutex> changing();

}  // namespace engine
