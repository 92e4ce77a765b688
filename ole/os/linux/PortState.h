#pragma once

#include "Qz/InternalRefCount.h"
#include "Qz/Ptr.h"
#include "os/BriefLook.h"
#include "os/CompletionPortHandler.h"
#include "os/linux/BackendSelect.h"
#include "os/linux/CopyQueue.h"
#include "os/linux/ServerWorkers.h"
#include "os/linux/TransferBackend.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// PortState: the inside of a completion port, shared by the port, its threads and the attached files.
//
// The threads take turns: one sleeps in the backend for finished transfers and then runs the command for
// each of them, the others sleep. Waking another one for every command costs more than most commands, so
// it is done only where commands have lately been long; a command that turns out to block is found by the
// watching thread within a few milliseconds, and another thread takes over, so that it holds up nobody.
// Copies:     where many bytes wait that the page cache is likely to have, the threads share the copies and
//             run each command while its data is in their cache. The rest goes on to the backend. Where
//             all others are in commands the watching thread calls the one in the backend.
// Growth:     the watching thread adds one while completions wait, all threads are in commands, and none
//             has come back for 100 ms. A thread above the minimum leaves when it finds nothing to do.
// The end:    a transfer that a server never ends must not keep the port from ending. The port then leaves
//             its threads to themselves; they go when the server has answered, and report nothing any more.
// Threads:    any, also the port's own.
// Locks:      mutex_ is held neither while a command runs nor while the backend works.
// Lifetime:   start before use; shutDown before the last reference goes. Each thread keeps a reference.
class PortState final : public Qz::InternalRefCount, private TransferSink
{
public:
    static constexpr unsigned threadsMax = 16;

    PortState(IoBackend backend, const char* name, const IOCompletionCommand& command, unsigned minThreads);
    ~PortState() override;

    void start();

    // Takes over a transfer that was begun. False when the port is shut down or has no thread.
    bool submit(LinuxAsyncContext* transfer);

    // Refuses further transfers, waits until the accepted ones are delivered and ends the threads. On a
    // thread of the port, the completion that runs there is left out. Further calls do nothing. Transfers
    // whose server may stop answering are given up when none has ended for two seconds (Patience.h); the
    // memory of these stays theirs.
    void shutDown();

    [[nodiscard]] bool isOpen() const;

    // Keeps the port from ending while a batch holds transfers back; false when it is shut down.
    bool hold();
    // Hands on what was held back, and lets go.
    void releaseHeld();

    // Threads that deliver; for tests.
    [[nodiscard]] unsigned threadCount();

private:
    void takeFinished(TransferList& finished) override;

    // What keeps the port from ending: transfers, calls that are inside the backend, and holds.
    bool enter(unsigned entries);
    void leave(unsigned entries);
    [[nodiscard]] unsigned entered() const;

    using Lock = std::unique_lock<std::mutex>;
    using Clock = std::chrono::steady_clock;

    // What one thread delivers between two looks at the clock.
    struct Round
    {
        Clock::time_point start;
        unsigned commands = 0;
    };

    void flush();
    void releaseCopies();

    // One thread's looks for copies.
    struct Looks
    {
        os::BriefLook brief;
        bool hasCopied = false;  // since it slept
    };

    // The rest with mutex_ held through lock.
    bool addThread();
    void deliverLoop(Lock& lock);
    void waitForFinished(Lock& lock);
    void copy(Lock& lock, TransferList& group);
    void sleep(Lock& lock, Looks& looks);
    void unlockAndWakeForCopies(Lock& lock);
    void callCollector(Lock& lock);
    void runCommand(Lock& lock, LinuxAsyncContext* transfer);
    void endRound(Round& round);
    [[nodiscard]] bool somethingWaits() const;
    void unlockAndWake(Lock& lock, bool helpWanted);
    void leaveThreads();
    // False when only transfers are left that do not end.
    bool waitUntilDrained(Lock& lock, unsigned own);
    void leaveToThemselves();
    void endThreads(Lock& lock);
    void startWatching();
    void watchLoop(Lock& lock);
    void look(Lock& lock);
    void addThreadIfAllBusy();
    void joinThreads();

    const std::string name_;
    IOCompletionCommand command_;
    const unsigned minThreads_;
    std::unique_ptr<TransferBackend> backend_;
    bool sharesCopies_ = false;  // set by start
    std::unique_ptr<ServerWorkers> servers_;
    std::atomic<unsigned> word_{0};          // entries times two, plus one once shut down
    std::atomic<unsigned> slowUnderWay_{0};  // transfers whose server may stop answering, until delivered

    std::mutex mutex_;
    std::condition_variable work_;     // sleeping threads
    std::condition_variable drained_;  // shutDown
    std::condition_variable watch_;    // the watching thread
    TransferList ready_;               // finished, not yet delivered
    CopyQueue copies_;
    std::vector<std::thread> threads_;
    std::vector<std::thread> left_;  // threads that left and wait to be joined
    std::thread watcher_;
    unsigned asleep_ = 0;
    unsigned busy_ = 0;                // threads in a command
    unsigned copying_ = 0;             // threads in a copy
    unsigned looking_ = 0;             // threads that look for copies
    unsigned returned_ = 0;            // commands that came back, modulo 2^32
    bool collecting_ = false;          // one thread is in the backend
    Clock::duration usualCommand_{0};  // what one takes, as a mean of the last rounds
    bool watching_ = false;            // the watcher looks from time to time
    unsigned returnedAtLook_ = 0;
    unsigned rounds_ = 0;  // that ended, modulo 2^32
    unsigned roundsAtLook_ = 0;
    unsigned stuckLooks_ = 0;  // in a row at which a command ran and none had come back
    unsigned idleLooks_ = 0;   // in a row at which nothing had happened
    bool ending_ = false;
    bool abandoned_ = false;  // nothing is delivered any more
};
