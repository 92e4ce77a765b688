#pragma once

#include "Qz/Assert.h"
#include "Qz/Export.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace Qz {

// SingletonHolder: one instance of T, made on first use and destroyed by an exit callback.
//
// Asking after the destruction makes a new instance. One that is made after the exit callback ran is
// never destroyed, so that late static destructors may still use it. Destroying twice, with no new
// instance between, prints an assertion line and does nothing.
//
// Threads:    instance from any thread; destroy only while nobody uses the instance.
// Beware:     T's constructor must not ask for the instance. Its destructor may, and gets a new one.
template <class T>
class QZ_API SingletonHolder
{
public:
    // The instance, made now when there is none.
    static T& instance()
    {
        if (T* existing = instance_.load(std::memory_order_acquire))
            return *existing;
        const std::lock_guard<std::mutex> hold(guard());
        if (T* existing = instance_.load(std::memory_order_relaxed))
            return *existing;
        T* made = new T;
        if (!std::exchange(hooked_, true))
            std::atexit(&atExit);
        destroyed_ = false;
        instance_.store(made, std::memory_order_release);
        return *made;
    }

    // Destroys the instance. One that is asked for afterwards is made anew.
    static void destroy()
    {
        T* ending = nullptr;
        {
            const std::lock_guard<std::mutex> hold(guard());
            if (!verify(!destroyed_, "!destroyed_", "ole/Qz/QzLokiSingleton line 242"))
                return;
            destroyed_ = true;
            ending = instance_.exchange(nullptr, std::memory_order_acq_rel);
        }
        delete ending;  // outside of the lock: its end may ask for an instance
    }

private:
    static void atExit()
    {
        if (instance_.load(std::memory_order_acquire))
            destroy();
    }
    static std::mutex& guard()
    {
        static std::mutex* const lasting = new std::mutex;  // outlives every static destructor
        return *lasting;
    }

    inline static std::atomic<T*> instance_{nullptr};
    inline static bool destroyed_ = false;  // under guard, like hooked_
    inline static bool hooked_ = false;
};

}  // namespace Qz
