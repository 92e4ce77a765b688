#include "os/testing/FakePageMemory.h"

#include "os/Codes.h"
#include "os/LastError.h"
#include "os/testing/FakeCore.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace {

constexpr std::align_val_t pageAlignment{FakePageMemory::pageSize};

struct PageRelease
{
    void operator()(void* memory) const { ::operator delete(memory, pageAlignment); }
};
using Pages = std::unique_ptr<void, PageRelease>;

Pages zeroedPages(std::size_t size)
{
    Pages memory(::operator new(size, pageAlignment, std::nothrow));
    if (memory)
        std::memset(memory.get(), 0, size);
    return memory;
}

void note(FakeCore& core, fake::Op op, std::size_t size, unsigned code)
{
    fake::Call call;
    call.op = op;
    call.count = size;
    call.code = code;
    core.log.add(call);
}

}  // namespace

FakePageMemory::FakePageMemory(std::shared_ptr<FakeCore> core) : core_(std::move(core)) {}

FakePageMemory::~FakePageMemory()
{
    for (const auto& [memory, index] : live_)
        ::operator delete(memory, pageAlignment);
}

void* FakePageMemory::allocate(void* address, std::size_t size, unsigned type, unsigned protection)
{
    unsigned code = 0;
    if (const auto fault = core_->fault(fake::Op::allocatePages))
        code = fault->code;
    else if (type != os::pagesReserveCommit || protection != os::pagesReadWrite || size == 0)
        code = errorFromErrno(EINVAL);
    // Tests let the program's memory run out as well.
    Pages memory = code == 0 ? zeroedPages(size) : nullptr;
    if (!memory && code == 0)
        code = errorFromErrno(ENOMEM);
    if (code != 0)
        setLastError(code);
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        records_.push_back({address, size, type, protection, memory.get(), false, 0});
        if (memory) {
            live_[memory.get()] = records_.size() - 1;
            ++core_->live.pages;
        }
    }
    void* const taken = memory.release();
    note(*core_, fake::Op::allocatePages, size, code);
    return taken;
}

bool FakePageMemory::release(void* memory, unsigned freeType)
{
    if (!memory)
        return true;
    std::size_t size = 0;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        const auto found = live_.find(memory);
        if (found != live_.end() && freeType == os::pagesRelease) {
            fake::PageRecord& record = records_[found->second];
            record.released = true;
            record.freeType = freeType;
            size = record.size;
            live_.erase(found);
            --core_->live.pages;
        }
    }
    const unsigned code = size == 0 ? setLastErrno(EINVAL) : 0;
    note(*core_, fake::Op::releasePages, size, code);
    if (size == 0)
        return false;
    ::operator delete(memory, pageAlignment);
    return true;
}

std::vector<fake::PageRecord> FakePageMemory::records() const
{
    const std::lock_guard<std::mutex> guard(mutex_);
    return records_;
}
