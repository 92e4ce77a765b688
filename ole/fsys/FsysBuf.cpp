#include "fsys/FsysBuf.h"

#include "os/Codes.h"
#include "os/OS.h"

#include <limits>

namespace {

constexpr unsigned blockSlackBytes = 512;

unsigned char* allocatePages(unsigned size)
{
    return static_cast<unsigned char*>(
        OS()->getPageMemory()->allocate(nullptr, size, os::pagesReserveCommit, os::pagesReadWrite));
}

}  // namespace

MemBlock::MemBlock(unsigned size)
{
    // A size that the slack would wrap round to a few bytes gets no memory at all.
    if (size > std::numeric_limits<unsigned>::max() - blockSlackBytes)
        return;
    size_ = size + blockSlackBytes;
    memory_ = allocatePages(size_);
}

MemBlock::~MemBlock()
{
    if (memory_)
        OS()->getPageMemory()->release(memory_, os::pagesRelease);
}

unsigned char* MemBlock::getBuffer() const { return memory_ ? memory_ + offset_ : nullptr; }
unsigned MemBlock::getSize() const { return memory_ ? size_ : 0; }
unsigned MemBlock::getUsed() const { return getSize(); }
void MemBlock::setUsed(unsigned /*bytes*/) {}

WriteMemRef::WriteMemRef(unsigned char* memory) : memory_(memory) {}

WriteMemRef::~WriteMemRef()
{
    if (memory_)
        OS()->getPageMemory()->release(memory_, os::pagesRelease);
}

unsigned char* WriteMemRef::getBuffer() const { return memory_; }
unsigned WriteMemRef::getSize() const { return 0; }
unsigned WriteMemRef::getUsed() const { return getSize(); }
void WriteMemRef::setUsed(unsigned /*bytes*/) {}

Qz::Ptr<MemBlock> FsysBuf::GetMemBlock(unsigned size, FileRequest* /*request*/)
{
    Qz::Ptr<MemBlock> block(new MemBlock(size));
    return block->getBuffer() ? block : Qz::Ptr<MemBlock>();
}

Qz::Ptr<iMemHolder> allocateWriteCache()
{
    return Qz::Ptr<iMemHolder>(new WriteMemRef(allocatePages(writeCacheBytes)));
}
