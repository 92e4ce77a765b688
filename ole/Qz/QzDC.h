#pragma once

#include "Qz/Export.h"
#include "Qz/ObjectPool.h"
#include "Qz/Ptr.h"
#include "Qz/iObject.h"

#include <new>

// QzDC: commands that carry a call to a receiver across threads.
//
// A command does not own its receiver: the receiver often owns whatever keeps the command, and a
// counted pointer back would keep both for ever. The receiver outlives every command that names it.
namespace QzDC {

namespace ThreadSafetyTraits {
// Commands may be copied and executed on any thread.
struct QZ_API ThreadSafe
{
};
}  // namespace ThreadSafetyTraits

// Whoever gets the call. executeCommand returns 1 when the command was handled.
template <class Cmd>
class QZ_API Receiver
{
public:
    virtual ~Receiver() = default;
    // Handles command with parameter, on the thread that executes it. 1 when it was handled.
    virtual int executeCommand(Cmd& command, typename Cmd::Parameter& parameter) = 0;
};

// The shared inside of all copies of one command; its memory comes from a lock-free pool.
template <class Cmd>
class QZ_API SimpleCommandRep final : public Qz::InternalRefCount
{
public:
    // receiver is borrowed.
    explicit SimpleCommandRep(Receiver<Cmd>* receiver) : receiver_(receiver) {}
    // The receiver that it was made with.
    [[nodiscard]] Receiver<Cmd>* receiver() const { return receiver_; }

    // From the pool; throws std::bad_alloc when there is no memory.
    static void* operator new(std::size_t)
    {
        if (void* memory = pool().take())
            return memory;
        throw std::bad_alloc();
    }
    // Back to the pool.
    static void operator delete(void* memory) { pool().give(memory); }

private:
    static Qz::ObjectPool& pool()
    {
        static Qz::ObjectPool& shared =
            Qz::ObjectPool::named("QzDC::SimpleCommandRep", sizeof(SimpleCommandRep));
        return shared;
    }

    Receiver<Cmd>* receiver_;
};

// A command with one parameter of type P. Tag tells commands with equal parameters apart.
template <class P, class Tag, class Traits>
class QZ_API SmplCmd
{
public:
    // What a call carries.
    using Parameter = P;

    // receiver is borrowed and outlives every copy of the command.
    explicit SmplCmd(Receiver<SmplCmd>* receiver) : rep_(new SimpleCommandRep<SmplCmd>(receiver)) {}

    // REQUIRES: the receiver is not null and still alive.
    // Runs the receiver's executeCommand on this thread and returns its answer.
    int execute(P& parameter) { return rep_->receiver()->executeCommand(*this, parameter); }

private:
    Qz::Ptr<SimpleCommandRep<SmplCmd>> rep_;
};

}  // namespace QzDC
