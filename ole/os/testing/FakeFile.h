#pragma once

#include "Qz/LightweightString.h"
#include "os/iFile.h"
#include "os/testing/CallLog.h"
#include "os/testing/FakeTree.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

struct FakeCore;

namespace fake {

class PortState;

// What a handle and its transfers share.
struct OpenFile
{
    LightweightString<wchar_t> path;
    unsigned handle = 0;  // from 1, in order of opening
    unsigned access = 0;
    unsigned mode = 0;
    std::shared_ptr<Node> node;
    std::atomic<bool> open{true};
    std::mutex portMutex;
    std::shared_ptr<PortState> port;  // null: not attached
};

}  // namespace fake

// FakeFile: a handle on a file of the fake file system. Its asynchronous transfers go to FakeTransfers.
//
// A handle may be written when it was opened with os::accessWrite, and always be read.
class FakeFile : public iFile
{
public:
    FakeFile(std::shared_ptr<FakeCore> core, std::shared_ptr<fake::OpenFile> file);
    ~FakeFile() override;

    bool isOpen() const override { return file_->open; }
    bool read(std::uint64_t position, void* buffer, std::size_t count, std::size_t* done) override;
    bool write(std::uint64_t position, const void* buffer, std::size_t count, std::size_t* done) override;
    bool getInfo(FILE_INFO* info) override;
    std::uint64_t getSize() override;
    bool flush() override;
    bool setSize(std::uint64_t bytes) override;
    bool getWrittenSize(std::uint64_t* bytes) override;
    bool claim() override;
    unsigned getAsyncCapability() const override;
    bool asyncRead(std::uint64_t position, void* buffer, std::size_t count,
                   const Qz::Ptr<iAsyncContext>& context) override;
    bool asyncWrite(std::uint64_t position, const void* buffer, std::size_t count,
                    const Qz::Ptr<iAsyncContext>& context) override;
    void close() override;

    // True when transfers of this handle will be reported at the port from here on.
    bool attachTo(const std::shared_ptr<fake::PortState>& port);
    [[nodiscard]] const fake::OpenFile& state() const { return *file_; }

private:
    // Calls action with the file's mutex held unless a fault is planned; logs, and sets the last error.
    bool act(fake::Call call, unsigned access, const std::function<int(fake::Node&)>& action);
    bool startTransfer(bool isRead, std::uint64_t position, void* readBuffer, const void* writeBuffer,
                       std::size_t count, const Qz::Ptr<iAsyncContext>& context);

    std::shared_ptr<FakeCore> core_;
    std::shared_ptr<fake::OpenFile> file_;
};
