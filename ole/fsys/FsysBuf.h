#pragma once

#include "Qz/Ptr.h"
#include "Qz/iMemHolder.h"

#include <atomic>
#include <cstdint>

class FileRequest;

// MemBlock: memory of one read, in whole pages of the platform, 512 bytes larger than asked for.
// Units: bytes. Without memory the buffer is null and the size 0.
class MemBlock : public iMemHolder
{
public:
    explicit MemBlock(unsigned size);
    ~MemBlock() override;
    MemBlock(const MemBlock&) = delete;
    MemBlock& operator=(const MemBlock&) = delete;

    [[nodiscard]] unsigned char* getBuffer() const override;
    [[nodiscard]] unsigned getSize() const override;
    [[nodiscard]] unsigned getUsed() const override;  // the same as getSize
    void setUsed(unsigned bytes) override;

private:
    unsigned char* memory_ = nullptr;
    unsigned size_ = 0;
    unsigned offset_ = 0;
};

// WriteMemRef: the memory of a write cache. It keeps its size to itself: getSize answers 0.
class WriteMemRef : public iMemHolder
{
public:
    // Takes over memory that the platform's page memory handed out; null is allowed.
    explicit WriteMemRef(unsigned char* memory);
    ~WriteMemRef() override;
    WriteMemRef(const WriteMemRef&) = delete;
    WriteMemRef& operator=(const WriteMemRef&) = delete;

    [[nodiscard]] unsigned char* getBuffer() const override;
    [[nodiscard]] unsigned getSize() const override;
    [[nodiscard]] unsigned getUsed() const override;
    void setUsed(unsigned bytes) override;

private:
    unsigned char* memory_;
};

// FsysBuf: where the engine's reads get their memory.
//
// Every read gets a fresh block and every block goes back to the platform with its last reference;
// whether the platform recycles them is its own business. A block that cannot be had is not asked for
// again here: the start of the request is tried again by later passes.
// Threads: any.
class FsysBuf
{
public:
    virtual ~FsysBuf() = default;

    // A block of size bytes and 512 more; empty when there is no memory. request is not looked at.
    [[nodiscard]] Qz::Ptr<MemBlock> GetMemBlock(unsigned size, FileRequest* request);

    // Bytes of queued requests that have no block yet. Writes and merges raise it, only reads lower it,
    // so it drifts upwards and wraps; it is a trace, nothing is decided by it.
    std::atomic<std::uint32_t> reservedBytes{0};
};

// A fresh write cache of writeCacheBytes; its buffer is null when there is no memory.
constexpr unsigned writeCacheBytes = 524288;
[[nodiscard]] Qz::Ptr<iMemHolder> allocateWriteCache();
