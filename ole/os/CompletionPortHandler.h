#pragma once

#include "Qz/Ptr.h"
#include "Qz/QzDC.h"
#include "os/Export.h"
#include "os/iFile.h"

// What a completion tells: filled in by the platform, read by the receiver.
class CompletionPortHandlerCallbackContext
{
public:
    // context is the owner that the transfer's iAsyncContext was made with.
    CompletionPortHandlerCallbackContext(bool succeeded, unsigned bytes, void* context)
        : succeeded_(succeeded), bytes_(bytes), context_(context)
    {}
    // False for a transfer that failed; its code is the thread's last error while the completion runs.
    [[nodiscard]] bool succeeded() const { return succeeded_; }
    // Bytes that the transfer moved; 0 after a failure.
    [[nodiscard]] unsigned bytesProcessed() const { return bytes_; }
    // The owner of the transfer's iAsyncContext.
    [[nodiscard]] void* context() const { return context_; }

private:
    bool succeeded_;
    unsigned bytes_;
    void* context_;
};

// Tells this command from others.
struct OnIOCompletionTag
{
};

// The command that a port executes for each finished transfer.
using IOCompletionCommand = QzDC::SmplCmd<CompletionPortHandlerCallbackContext, OnIOCompletionTag,
                                          QzDC::ThreadSafetyTraits::ThreadSafe>;

// iCompletionPort: the platform's side of a port (see CompletionPortHandler).
class OS_API iCompletionPort : public iObject
{
public:
    // As CompletionPortHandler::attach.
    virtual bool attach(const Qz::Ptr<iFile>& file) = 0;
    // As the end of a CompletionPortHandler; a second call does nothing.
    virtual void shutDown() = 0;
};

// CompletionPortHandler: threads on which finished transfers of the attached files are reported.
//
// Each accepted transfer of an attached file leads to exactly one execution of command, on a thread of
// the port. For a failed transfer the thread's last error is the transfer's code meanwhile. Completions
// come in no promised order; those of one file may run at the same time on several threads.
//
// Threads:    starts at least minThreads threads named after the port. More are added, up to a bound,
//             while completions wait and every thread sits in a command: a command may itself wait for
//             another completion of this port.
// End:        the destructor refuses new transfers, waits until every accepted one has been reported and
//             ends the threads; attached files stay usable synchronously. On a thread of the port itself
//             it does not wait for the completion that it runs in.
class OS_API CompletionPortHandler
{
public:
    // Starts the threads, of which name shows in debuggers. command is executed for each completion.
    // maxThreads, concurrency and priority are for platforms that need them; they have no effect on Linux.
    CompletionPortHandler(const char* name, const IOCompletionCommand& command, int minThreads,
                          int maxThreads, int concurrency, int priority);
    // See End.
    ~CompletionPortHandler();
    CompletionPortHandler(const CompletionPortHandler&) = delete;
    CompletionPortHandler& operator=(const CompletionPortHandler&) = delete;

    // True when transfers of file will be reported here; false when file is null, closed, not opened for
    // asynchronous use, or attached already.
    bool attach(const Qz::Ptr<iFile>& file);

private:
    Qz::Ptr<iCompletionPort> port_;
};
