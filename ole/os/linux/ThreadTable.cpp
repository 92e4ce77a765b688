#include "os/linux/ThreadTable.h"

#include "os/LastError.h"
#include "os/linux/ThreadName.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

constexpr unsigned slotBits = 16;
constexpr unsigned slotMask = 0xFFFF;

struct Start
{
    iThreadServices::Body body;
    void* argument;
    std::string name;
};

void* runBody(void* given)
{
    const std::unique_ptr<Start> start(static_cast<Start*>(given));
    nameThisThread(start->name.c_str());
    start->body(start->argument);
    return nullptr;
}

// errno, 0 for success.
int startThread(pthread_t* thread, std::unique_ptr<Start> start, unsigned stackSize)
{
    pthread_attr_t attributes;
    if (const int error = pthread_attr_init(&attributes))
        return error;
    if (stackSize > 0) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t size =
            std::max<std::size_t>(stackSize, static_cast<std::size_t>(PTHREAD_STACK_MIN));
        pthread_attr_setstacksize(&attributes, (size + page - 1) / page * page);
    }
    const int error = pthread_create(thread, &attributes, runBody, start.get());
    pthread_attr_destroy(&attributes);
    if (error == 0)
        static_cast<void>(start.release());
    return error;
}

}  // namespace

unsigned ThreadTable::takeSlot()
{
    const auto isFree = [](const Slot& slot) { return !slot.taken; };
    const auto free = std::find_if(slots_.begin() + 1, slots_.end(), isFree);
    const auto index = static_cast<unsigned>(free - slots_.begin());
    if (index > slotMask)
        return 0;
    if (free == slots_.end())
        slots_.emplace_back();
    slots_[index].taken = true;
    slots_[index].generation = (slots_[index].generation + 1) & slotMask;
    return index;
}

unsigned ThreadTable::start(iThreadServices::Body body, const char* name, unsigned stackSize, void* argument)
{
    if (!body) {
        setLastErrno(EINVAL);
        return 0;
    }
    // The new thread may end itself at once, so its slot must be complete before it can.
    const std::lock_guard guard(mutex_);
    const unsigned index = takeSlot();
    if (index == 0) {
        setLastErrno(EAGAIN);
        return 0;
    }
    Slot& slot = slots_[index];
    auto begin = std::make_unique<Start>(Start{body, argument, name ? name : ""});
    if (const int error = startThread(&slot.thread, std::move(begin), stackSize)) {
        slot.taken = false;
        setLastErrno(error);
        return 0;
    }
    slot.running = true;
    return slot.generation << slotBits | index;
}

void ThreadTable::end(unsigned id16)
{
    const unsigned index = id16 & slotMask;
    pthread_t thread{};
    {
        const std::lock_guard guard(mutex_);
        if (index >= slots_.size() || !slots_[index].running)
            return;
        thread = slots_[index].thread;
        slots_[index].running = false;
    }
    if (pthread_equal(thread, pthread_self()))
        pthread_detach(thread);
    else
        pthread_join(thread, nullptr);
    const std::lock_guard guard(mutex_);
    slots_[index].taken = false;
}
