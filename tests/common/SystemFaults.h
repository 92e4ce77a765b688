#pragma once

// SystemFaults: calls below the platform that fail in turn: threads that cannot be started, rings that cannot
// be built or used.
//
// A program that has SystemFaults.cpp among its sources puts these in place of the system's own, for itself
// and for the shared libraries that it uses. Without a plan they do nothing but count.
// Threads:    any. A plan is made and taken back by one thread at a time.
namespace system_faults {

enum class Call : unsigned char {
    startThread,  // pthread_create, whoever asks for the thread
    buildRing,
    makeSlots,  // of a ring, for memory that it keeps mapped
    fillSlot,
    submit,
};
constexpr unsigned callCount = 5;

struct Fault
{
    static constexpr unsigned forEver = ~0U;

    Call call = Call::startThread;
    int error = 0;       // errno
    unsigned first = 1;  // the first call that fails, counted from the plan on: 1 = the next one
    unsigned count = 1;  // how many calls fail from there on
};

[[nodiscard]] const char* nameOf(Call call);

// Forgets what was counted, and lets the calls of fault fail from here on.
void plan(const Fault& fault);
// Nothing fails any more; forgets what was counted.
void clear();

// Since the last plan or clear.
[[nodiscard]] unsigned asked(Call call);
[[nodiscard]] unsigned fired();

// A plan for the length of a block.
class Scope
{
public:
    explicit Scope(const Fault& fault) { plan(fault); }
    ~Scope() { clear(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

}  // namespace system_faults
