#include "Qz/Shutdown.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <vector>

namespace Shutdown {

namespace {

struct Entry
{
    Callback callback;
    int priority;
};

// The callbacks in the order of registration. Never destroyed: static destructors may still register.
class Register
{
public:
    static Register& instance()
    {
        static Register* const lasting = new Register;
        return *lasting;
    }

    void add(Callback callback, int priority)
    {
        const std::lock_guard<std::mutex> hold(guard_);
        entries_.push_back({callback, priority});
        if (!hookPending_)
            hookPending_ = std::atexit(&Register::atExit) == 0;
    }

    // Takes the next callback out, so that it runs once whoever runs.
    std::optional<Entry> takeNext()
    {
        const std::lock_guard<std::mutex> hold(guard_);
        if (entries_.empty())
            return std::nullopt;
        auto next = entries_.begin();
        for (auto entry = entries_.begin(); entry != entries_.end(); ++entry)
            if (entry->priority >= next->priority)
                next = entry;
        const Entry taken = *next;
        entries_.erase(next);
        return taken;
    }

private:
    // A registration after this point sets a new hook, which the same exit still runs.
    static void atExit()
    {
        {
            const std::lock_guard<std::mutex> hold(instance().guard_);
            instance().hookPending_ = false;
        }
        run(eNormalExit);
    }

    std::mutex guard_;
    std::vector<Entry> entries_;
    bool hookPending_ = false;
};

std::atomic<Observer> observer{nullptr};

}  // namespace

void addCallback(Callback callback, int priority)
{
    if (!callback)
        return;
    if (const Observer watch = observer.load(std::memory_order_acquire))
        watch(callback, priority);
    Register::instance().add(callback, priority);
}

void run(eExitType type)
{
    // The lock is not held during a callback: it may register, or run, more of them.
    while (const std::optional<Entry> next = Register::instance().takeNext())
        next->callback(type);
}

void setObserver(Observer watch) { observer.store(watch, std::memory_order_release); }

}  // namespace Shutdown
