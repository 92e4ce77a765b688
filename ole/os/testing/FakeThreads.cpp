#include "os/testing/FakeThreads.h"

#include "Qz/Utf8.h"
#include "os/LastError.h"
#include "os/testing/FakeCore.h"
#include "os/testing/StopTest.h"
#include "os/testing/ThreadName.h"

#include <chrono>
#include <condition_variable>
#include <utility>

namespace {

constexpr std::chrono::seconds endPatience{10};

thread_local std::string threadName;

void note(FakeCore& core, fake::Op op, const std::string& name, unsigned id, unsigned code = 0)
{
    fake::Call call;
    call.op = op;
    call.path = fromUTF8(name);
    call.handle = id;
    call.code = code;
    core.log.add(call);
}

}  // namespace

namespace fake {

std::string currentThreadName() { return threadName; }
void setCurrentThreadName(const std::string& name) { threadName = name; }

}  // namespace fake

struct FakeThreads::Thread
{
    std::mutex mutex;  // guards record and thread
    std::condition_variable returned;
    fake::ThreadRecord record;
    std::thread thread;

    int runBody()
    {
        fake::ThreadRecord now;
        {
            const std::lock_guard<std::mutex> guard(mutex);
            record.started = true;
            now = record;
        }
        const int result = now.body(now.argument);
        const std::lock_guard<std::mutex> guard(mutex);
        record.returned = true;
        record.result = result;
        returned.notify_all();
        return result;
    }
};

FakeThreads::FakeThreads(std::shared_ptr<FakeCore> core) : core_(std::move(core)) {}

FakeThreads::~FakeThreads()
{
    for (const auto& thread : threads_) {
        std::unique_lock<std::mutex> lock(thread->mutex);
        if (!thread->thread.joinable())
            continue;
        if (!thread->returned.wait_for(lock, endPatience, [&] { return thread->record.returned; }))
            fake::stopTest("a thread still runs at the end of its platform; it was never ended");
        std::thread last = std::move(thread->thread);
        lock.unlock();
        last.join();
    }
}

Qz::Ptr<iThreadEvent> FakeThreads::createEvent(unsigned manualReset, unsigned signalled, const char* name)
{
    auto state = std::make_shared<fake::EventState>();
    state->record.manualReset = manualReset;
    state->record.initiallySignalled = signalled;
    state->record.signalled = signalled != 0;
    state->record.hasName = name != nullptr;
    state->record.name = name ? name : "";
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        state->number = static_cast<unsigned>(events_.size());
        events_.push_back(state);
    }
    note(*core_, fake::Op::createEvent, state->record.name, state->number);
    return Qz::Ptr<iThreadEvent>(new FakeEvent(core_, state));
}

unsigned FakeThreads::createThread(Body body, const char* name, unsigned stackSize, void* argument,
                                   int priority, unsigned flags)
{
    const std::string text = name ? name : "";
    if (const auto fault = core_->fault(fake::Op::createThread, fromUTF8(text))) {
        setLastError(fault->code);
        note(*core_, fake::Op::createThread, text, 0, fault->code);
        return 0;
    }
    auto thread = std::make_shared<Thread>();
    unsigned id = 0;
    bool real = false;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const auto number = static_cast<unsigned>(threads_.size());
        // The generation is never 0, so a caller that forgets to cut the id down is found out.
        id = ((number / 0xFFFF + 1) << 16) | (number % 0xFFFF + 1);
        thread->record = {id, body, text, stackSize, argument, priority, flags, false, false, 0, false};
        threads_.push_back(thread);
        real = real_;
    }
    ++core_->live.threads;
    note(*core_, fake::Op::createThread, text, id);
    if (real) {
        const std::lock_guard<std::mutex> guard(thread->mutex);
        thread->thread = std::thread([thread, text] {
            threadName = text;
            thread->runBody();
        });
    }
    return id;
}

std::shared_ptr<FakeThreads::Thread> FakeThreads::find(unsigned id16) const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& thread : threads_) {
        const std::lock_guard<std::mutex> threadGuard(thread->mutex);
        if ((thread->record.id & 0xFFFF) == id16 && !thread->record.ended)
            return thread;
    }
    return nullptr;
}

void FakeThreads::endThread(unsigned id16)
{
    const std::shared_ptr<Thread> thread = find(id16);
    std::string name;
    if (thread) {
        std::thread last;
        {
            const std::lock_guard<std::mutex> guard(thread->mutex);
            thread->record.ended = true;
            name = thread->record.name;
            last = std::move(thread->thread);
        }
        if (last.joinable() && last.get_id() == std::this_thread::get_id())
            last.detach();
        else if (last.joinable())
            last.join();
        --core_->live.threads;
    }
    note(*core_, fake::Op::endThread, name, id16);
}

void FakeThreads::useRealThreads()
{
    core_->clock.expectRealThreads();
    const std::lock_guard<std::mutex> guard(mutex_);
    real_ = true;
}

std::vector<fake::ThreadRecord> FakeThreads::threads() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    std::vector<fake::ThreadRecord> result;
    for (const auto& thread : threads_) {
        const std::lock_guard<std::mutex> threadGuard(thread->mutex);
        result.push_back(thread->record);
    }
    return result;
}

int FakeThreads::run(std::size_t index)
{
    std::shared_ptr<Thread> thread;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (index < threads_.size())
            thread = threads_[index];
    }
    if (!thread)
        fake::stopTest("there is no thread of that index to run");
    const std::string before = std::exchange(threadName, thread->record.name);
    const int result = thread->runBody();
    threadName = before;
    return result;
}

std::vector<fake::EventRecord> FakeThreads::events() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    const std::lock_guard<std::mutex> clockGuard(core_->clock.mutex());
    std::vector<fake::EventRecord> result;
    for (const auto& state : events_)
        result.push_back(state->record);
    return result;
}
