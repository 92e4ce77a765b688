#pragma once

#include "os/iFile.h"

// ForwardingFile: passes every call on to another handle, so that a test overrides one method.
// Ports take it for the handle that it wraps.
class ForwardingFile : public iFile
{
public:
    explicit ForwardingFile(const Qz::Ptr<iFile>& target) : target_(target) {}
    [[nodiscard]] const Qz::Ptr<iFile>& target() const { return target_; }

    bool isOpen() const override { return target_->isOpen(); }
    bool read(std::uint64_t position, void* buffer, std::size_t count, std::size_t* done) override
    {
        return target_->read(position, buffer, count, done);
    }
    bool write(std::uint64_t position, const void* buffer, std::size_t count, std::size_t* done) override
    {
        return target_->write(position, buffer, count, done);
    }
    bool getInfo(FILE_INFO* info) override { return target_->getInfo(info); }
    std::uint64_t getSize() override { return target_->getSize(); }
    bool flush() override { return target_->flush(); }
    bool setSize(std::uint64_t bytes) override { return target_->setSize(bytes); }
    bool getWrittenSize(std::uint64_t* bytes) override { return target_->getWrittenSize(bytes); }
    bool claim() override { return target_->claim(); }
    unsigned getAsyncCapability() const override { return target_->getAsyncCapability(); }
    bool asyncRead(std::uint64_t position, void* buffer, std::size_t count,
                   const Qz::Ptr<iAsyncContext>& context) override
    {
        return target_->asyncRead(position, buffer, count, context);
    }
    bool asyncWrite(std::uint64_t position, const void* buffer, std::size_t count,
                    const Qz::Ptr<iAsyncContext>& context) override
    {
        return target_->asyncWrite(position, buffer, count, context);
    }
    void close() override { target_->close(); }

    // The handle inside any number of wrappers; file itself when it is none.
    [[nodiscard]] static Qz::Ptr<iFile> innermost(const Qz::Ptr<iFile>& file)
    {
        Qz::Ptr<iFile> inner = file;
        while (auto* wrapper = dynamic_cast<ForwardingFile*>(inner.get()))
            inner = Qz::Ptr<iFile>(wrapper->target());
        return inner;
    }

private:
    Qz::Ptr<iFile> target_;
};
