#pragma once

#include "CompletionRecorder.h"
#include "os/Codes.h"
#include "os/OS.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

// ContractPlatform: one platform under the contract suite, with an empty folder for files.
//
// The suite states what every platform owes its callers. It runs on the real one with each of its
// transfer mechanisms and on the fake one, so that the fake cannot drift from what it stands for.
class ContractPlatform
{
public:
    virtual ~ContractPlatform() = default;

    // Why the platform cannot be had on this machine; empty when it can.
    [[nodiscard]] virtual std::string missing() { return {}; }

    virtual Qz::Ptr<iFile> open(const std::string& name, unsigned access, unsigned creation,
                                unsigned mode) = 0;
    virtual void makeFolder(const std::string& name) = 0;
    // Something that is opened as it is.
    virtual void makePipe(const std::string& name) = 0;
    virtual Qz::Ptr<iAsyncContext> createAsyncContext(void* owner) = 0;
    virtual Qz::Ptr<iCompletionPort> createPort(const IOCompletionCommand& command) = 0;
    virtual iThreadServices& threads() = 0;
    virtual iClock& clock() = 0;
    virtual iPageMemory& pages() = 0;
};

struct ContractParameter
{
    const char* name;
    std::unique_ptr<ContractPlatform> (*make)();
};

class PlatformContract : public testing::TestWithParam<ContractParameter>
{
protected:
    static constexpr unsigned asyncMode = os::modeAsync;
    static constexpr unsigned unbufferedAsyncMode = os::modeAsync | os::modeUnbuffered;

    void SetUp() override
    {
        platform_ = GetParam().make();
        if (const std::string why = platform_->missing(); !why.empty())
            GTEST_SKIP() << why;
    }

    ContractPlatform& platform() { return *platform_; }

    // Makes a file; false when it could not be written.
    bool makeFile(const std::string& name, const std::string& contents)
    {
        const Qz::Ptr<iFile> file = platform().open(name, os::accessWrite, os::creationNew, os::modePlain);
        return file && file->write(0, contents.data(), contents.size(), nullptr);
    }
    // The whole file, read synchronously.
    std::string contentsOf(const std::string& name)
    {
        const Qz::Ptr<iFile> file = platform().open(name, os::accessRead, os::creationOpen, os::modePlain);
        std::string contents(file ? file->getSize() : 0, '\0');
        if (!contents.empty() && !file->read(0, contents.data(), contents.size(), nullptr))
            ADD_FAILURE() << name << " cannot be read";
        return contents;
    }
    Qz::Ptr<iFile> openAsync(const std::string& name, unsigned access = os::accessRead)
    {
        return platform().open(name, access, os::creationOpen, asyncMode);
    }
    bool startRead(const Qz::Ptr<iFile>& file, std::uint64_t position, std::string& buffer,
                   void* owner = nullptr)
    {
        return file->asyncRead(position, buffer.data(), buffer.size(), platform().createAsyncContext(owner));
    }
    bool startWrite(const Qz::Ptr<iFile>& file, std::uint64_t position, const std::string& bytes,
                    void* owner = nullptr)
    {
        return file->asyncWrite(position, bytes.data(), bytes.size(), platform().createAsyncContext(owner));
    }

    // Bytes that differ from place to place and from seed to seed.
    static std::string pattern(std::size_t size, unsigned seed = 1)
    {
        std::string bytes(size, '\0');
        unsigned value = seed * 2654435761U + 1;
        for (char& byte : bytes) {
            value = value * 1664525U + 1013904223U;
            byte = static_cast<char>(value >> 24);
        }
        return bytes;
    }

private:
    std::unique_ptr<ContractPlatform> platform_;
};

// So that a failure tells the platform's name and not the parameter's bytes.
inline void PrintTo(const ContractParameter& parameter, std::ostream* out) { *out << parameter.name; }
