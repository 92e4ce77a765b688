#pragma once

#include <pybind11/pybind11.h>

// Gil: leaving the interpreter's lock for work that may wait, and entering it from threads of the libraries.
//
// A thread that asks for the lock of an interpreter that is ending is ended by it in the middle of what it
// does, destructors and all, which C++ does not survive. So from interpreterEnds on no thread but the one
// that ends the interpreter asks for the lock any more: one of Python waits for the end of the process
// instead, one of the libraries goes on without.
//
// Threads:    any.
// Locks:      none is held while the interpreter's lock is asked for, but those of callers. A lock of ours is
//             never waited for with the interpreter's lock held.
namespace gil {

// Out of the interpreter for the lifetime of this object. REQUIRES: the thread holds the interpreter's lock.
class Outside
{
public:
    Outside();
    ~Outside();
    Outside(const Outside&) = delete;
    Outside& operator=(const Outside&) = delete;

private:
    PyThreadState* state_;
};

// In the interpreter for the lifetime of this object, on a thread that may not be Python's.
class Inside
{
public:
    Inside();
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

    // False when the interpreter ends: nothing of it may be touched.
    [[nodiscard]] explicit operator bool() const { return entered_; }

private:
    bool entered_ = false;
    PyGILState_STATE state_{};
};

// Nobody enters from here on; returns when those are out that were on their way in or inside from a thread of
// the libraries. To be called once, before the interpreter is finalised, by the thread that does that.
void interpreterEnds();

// Does work outside of the interpreter.
template <class Work>
auto without(Work&& work)
{
    const Outside outside;
    return work();
}

}  // namespace gil
