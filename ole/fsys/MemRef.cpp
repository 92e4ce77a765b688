#include "fsys/MemRef.h"

MemRef::MemRef(const Qz::Ptr<iMemHolder>& holder, unsigned offset, unsigned size)
    : holder_(holder), offset_(offset), size_(size)
{}

unsigned char* MemRef::getBuffer() const
{
    unsigned char* const memory = holder_ ? holder_->getBuffer() : nullptr;
    return memory ? memory + offset_ : nullptr;
}

unsigned MemRef::getSize() const { return size_; }
unsigned MemRef::getUsed() const { return size_; }
void MemRef::setUsed(unsigned /*bytes*/) {}
