#pragma once

#include "Qz/Ptr.h"
#include "Qz/iMemHolder.h"

// MemRef: a window on a part of another holder; keeps that holder alive.
class MemRef : public iMemHolder
{
public:
    // offset and size in bytes; REQUIRES: they lie inside the other holder's memory.
    MemRef(const Qz::Ptr<iMemHolder>& holder, unsigned offset, unsigned size);

    // Null when the other holder has no memory.
    [[nodiscard]] unsigned char* getBuffer() const override;
    [[nodiscard]] unsigned getSize() const override;
    [[nodiscard]] unsigned getUsed() const override;
    void setUsed(unsigned bytes) override;

private:
    Qz::Ptr<iMemHolder> holder_;
    unsigned offset_;
    unsigned size_;
};
