#pragma once

#include "Qz/iObject.h"

// iMemHolder: a piece of memory that travels between threads by reference. The memory stays valid as
// long as any Qz::Ptr refers to the holder.
class QZ_API iMemHolder : public iObject
{
public:
    // The first byte; null when there is no memory.
    [[nodiscard]] virtual unsigned char* getBuffer() const = 0;
    // Bytes that the memory holds; 0 also from a holder that keeps this to itself.
    [[nodiscard]] virtual unsigned getSize() const = 0;
    // Bytes of it that carry data.
    [[nodiscard]] virtual unsigned getUsed() const = 0;
    // Says how many bytes carry data. Holders that do not track it ignore the call.
    virtual void setUsed(unsigned bytes) = 0;
};
