#pragma once

#include "Qz/iObject.h"

// iMemHolder: a piece of memory that travels between threads by reference. The memory stays valid as
// long as any Qz::Ptr refers to the holder.
//
// getBuffer   first byte, or null when there is no memory.
// getSize     bytes that the memory holds; a holder may keep this to itself and answer 0.
// getUsed     bytes of it that carry data.
// setUsed     says how many bytes carry data; holders that do not track it ignore the call.
class QZ_API iMemHolder : public iObject
{
public:
    [[nodiscard]] virtual unsigned char* getBuffer() const = 0;
    [[nodiscard]] virtual unsigned getSize() const = 0;
    [[nodiscard]] virtual unsigned getUsed() const = 0;
    virtual void setUsed(unsigned bytes) = 0;
};
