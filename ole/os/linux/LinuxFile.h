#pragma once

#include "Qz/Ptr.h"
#include "os/iFile.h"
#include "os/linux/SharedDescriptor.h"

#include <memory>
#include <mutex>
#include <string>

class PortState;

// LinuxFile: a file of the kernel.
//
// Threads:    any. mutex_ guards which descriptor and port are in use, never a transfer.
// Ownership:  shares its descriptor with the transfers that it started, so that closing the file leaves
//             them whole.
// Servers:    where the file system has one that may stop answering, every call goes through FileServer,
//             and bytes through memory of our own: the kernel may still use it when the call is given up.
class LinuxFile final : public iFile
{
public:
    LinuxFile(const Qz::Ptr<SharedDescriptor>& descriptor, unsigned mode);

    [[nodiscard]] bool isOpen() const override;
    bool read(std::uint64_t position, void* buffer, std::size_t count, std::size_t* done) override;
    bool write(std::uint64_t position, const void* buffer, std::size_t count, std::size_t* done) override;
    bool getInfo(FILE_INFO* info) override;
    [[nodiscard]] std::uint64_t getSize() override;
    [[nodiscard]] bool flush() override;
    [[nodiscard]] bool setSize(std::uint64_t bytes) override;
    [[nodiscard]] bool getWrittenSize(std::uint64_t* bytes) override;
    [[nodiscard]] bool claim() override;
    [[nodiscard]] unsigned getAsyncCapability() const override;
    bool asyncRead(std::uint64_t position, void* buffer, std::size_t count,
                   const Qz::Ptr<iAsyncContext>& context) override;
    bool asyncWrite(std::uint64_t position, const void* buffer, std::size_t count,
                    const Qz::Ptr<iAsyncContext>& context) override;
    void close() override;

    // Transfers are reported at port from now on. False when the file is closed, serves no asynchronous
    // transfers, or has a port already, be it a dead one.
    bool attachTo(const Qz::Ptr<PortState>& port);

private:
    Qz::Ptr<SharedDescriptor> descriptor() const;
    // What question(descriptor) answers; failed when the file is closed or its server gave no answer.
    template <class Result, class Question>
    Result ask(Result failed, Question question);
    bool transferNow(TransferKind kind, std::uint64_t position, void* buffer, std::size_t count,
                     std::size_t* done);
    bool startTransfer(TransferKind kind, std::uint64_t position, void* buffer, std::size_t count,
                       const Qz::Ptr<iAsyncContext>& context);

    mutable std::mutex mutex_;
    Qz::Ptr<SharedDescriptor> descriptor_;  // empty once closed
    Qz::Ptr<PortState> port_;
    const unsigned mode_;
    const unsigned capability_;
};

// Opens a path that is given as the kernel takes it; codes in Codes.h. Never truncates, never waits for
// the other end of a pipe, refuses folders. server is for file systems whose server may stop answering
// (network, FUSE), else null: transfers never run inside the call that starts them, and none is unbuffered.
// This call itself waits for the server as long as it takes. Empty on failure, last error set.
[[nodiscard]] Qz::Ptr<iFile> openLinuxFile(const std::string& utf8Path, unsigned access, unsigned creation,
                                           unsigned mode,
                                           const std::shared_ptr<const os::FileServer>& server);
