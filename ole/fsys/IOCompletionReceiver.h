#pragma once

#include "os/CompletionPortHandler.h"

#include <cstdint>
#include <memory>

class FileRequest;
class FsysFile;
class MediaDrive;

// IOCompletionReceiver: where the platform reports finished transfers of the engine.
//
// Threads:    executeCommand runs on the threads of the two ports, several at a time, and takes none of
//             the engine's locks but that of LeftRequests; it must not come to need one, for a close may
//             hold them and wait.
// Ownership:  owns both ports. The command that the ports keep points back here without a count.
class IOCompletionReceiver : public QzDC::Receiver<IOCompletionCommand>
{
public:
    IOCompletionReceiver();
    // Ends the read port, then the write port; each waits for its accepted transfers.
    ~IOCompletionReceiver() override;
    IOCompletionReceiver(const IOCompletionReceiver&) = delete;
    IOCompletionReceiver& operator=(const IOCompletionReceiver&) = delete;

    [[nodiscard]] CompletionPortHandler* readPort() const { return readPort_.get(); }
    [[nodiscard]] CompletionPortHandler* writePort() const { return writePort_.get(); }

    // Settles one finished transfer: counters, speed, callbacks, final status. Returns 1.
    int executeCommand(IOCompletionCommand& command, CompletionPortHandlerCallbackContext& context) override;

private:
    // Static: a completion function may have ended the engine, and this object with it.
    static void fail(FileRequest* request);
    static void succeed(FileRequest* request, std::uint32_t bytes);
    static void checkSpeed(FileRequest* request, const FsysFile& file, double rate);
    static void settle(FileRequest* request, FsysFile& file);

    std::unique_ptr<CompletionPortHandler> readPort_;
    std::unique_ptr<CompletionPortHandler> writePort_;
};
