#include "os/linux/RemovalAtExit.h"

#include "os/linux/BoundedCalls.h"
#include "os/linux/PathText.h"

#include <unistd.h>

#include <compare>
#include <cstdlib>
#include <mutex>
#include <set>

namespace os {

namespace {

constexpr unsigned removalLimitMs = 2000;

struct Removal
{
    pid_t process = 0;
    std::string path;
    bool mayHang = false;

    auto operator<=>(const Removal&) const = default;  // NOLINT(modernize-use-nullptr): mistakes <=> for 0
};

struct Registered
{
    std::mutex lock;
    std::set<Removal> removals;
};

// Never destroyed: the exit hook must find it whatever the order of destruction.
Registered& registered()
{
    static Registered* const instance = new Registered;
    return *instance;
}

void removeNow(const Removal& removal, BoundedCalls& calls)
{
    if (removal.mayHang)
        calls.call<int>(splitPath(removal.path).folder,
                        [path = removal.path](Progress&) { return ::unlink(path.c_str()); });
    else
        ::unlink(removal.path.c_str());
}

void removeAll()
{
    std::set<Removal> removals;
    {
        const std::lock_guard guard(registered().lock);
        removals.swap(registered().removals);
    }
    BoundedCalls calls(removalLimitMs);
    for (const Removal& removal : removals)
        if (removal.process == ::getpid())
            removeNow(removal, calls);
}

}  // namespace

void removeAtExit(const std::string& path, bool mayHang)
{
    static const int hook = std::atexit(removeAll);
    static_cast<void>(hook);
    const std::lock_guard guard(registered().lock);
    registered().removals.insert({::getpid(), path, mayHang});
}

}  // namespace os
