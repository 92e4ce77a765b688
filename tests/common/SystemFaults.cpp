#include "common/SystemFaults.h"

#include <array>
#include <atomic>
#include <dlfcn.h>
#include <liburing.h>
#include <mutex>
#include <optional>
#include <pthread.h>

// A sanitizer's own, which has to see every thread.
#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreserved-identifier"
#endif
extern "C" int __interceptor_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)
    __attribute__((weak));
#ifdef __clang__
#pragma clang diagnostic pop
#endif

namespace system_faults {

namespace {

// Constant from the start: threads are started before constructors run.
constinit std::mutex guard;
constinit std::optional<Fault> planned;
constinit std::array<unsigned, callCount> counts{};
constinit unsigned firedCount = 0;

// errno of the failure, 0 when the call is to be carried out.
int failureOf(Call call)
{
    const std::lock_guard hold(guard);
    const unsigned number = ++counts[static_cast<unsigned>(call)];
    if (!planned || planned->call != call || number < planned->first ||
        number - planned->first >= planned->count)
        return 0;
    ++firedCount;
    return planned->error;
}

template <class Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

const char* nameOf(Call call)
{
    constexpr std::array<const char*, callCount> names = {"start of a thread", "build of a ring",
                                                          "slots of a ring", "fill of a slot", "submission"};
    return names[static_cast<unsigned>(call)];
}

void plan(const Fault& fault)
{
    const std::lock_guard hold(guard);
    planned = fault;
    counts = {};
    firedCount = 0;
}

void clear()
{
    const std::lock_guard hold(guard);
    planned.reset();
    counts = {};
    firedCount = 0;
}

unsigned asked(Call call)
{
    const std::lock_guard hold(guard);
    return counts[static_cast<unsigned>(call)];
}

unsigned fired()
{
    const std::lock_guard hold(guard);
    return firedCount;
}

}  // namespace system_faults

using system_faults::Call;
using system_faults::failureOf;
using system_faults::next;

// Shared libraries have to find these first.
#pragma GCC visibility push(default)
extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept
{
    if (const int error = failureOf(Call::startThread))
        return error;
    if (__interceptor_pthread_create)
        return __interceptor_pthread_create(thread, attributes, body, argument);
    static auto* const real = next<decltype(pthread_create)>("pthread_create");
    return real(thread, attributes, body, argument);
}

int io_uring_queue_init_params(unsigned entries, io_uring* ring, io_uring_params* parameters)
{
    if (const int error = failureOf(Call::buildRing))
        return -error;
    static auto* const real = next<decltype(io_uring_queue_init_params)>("io_uring_queue_init_params");
    return real(entries, ring, parameters);
}

int io_uring_register_buffers_sparse(io_uring* ring, unsigned count)
{
    if (const int error = failureOf(Call::makeSlots))
        return -error;
    static auto* const real =
        next<decltype(io_uring_register_buffers_sparse)>("io_uring_register_buffers_sparse");
    return real(ring, count);
}

int io_uring_register_buffers_update_tag(io_uring* ring, unsigned offset, const iovec* pieces,
                                         const __u64* tags, unsigned count)
{
    if (const int error = failureOf(Call::fillSlot))
        return -error;
    static auto* const real =
        next<decltype(io_uring_register_buffers_update_tag)>("io_uring_register_buffers_update_tag");
    return real(ring, offset, pieces, tags, count);
}

int io_uring_submit(io_uring* ring)
{
    if (const int error = failureOf(Call::submit))
        return -error;
    static auto* const real = next<decltype(io_uring_submit)>("io_uring_submit");
    return real(ring);
}

}  // extern "C"
#pragma GCC visibility pop
