#pragma once

#include "Qz/InternalRefCount.h"

// iObject: the common polymorphic base of everything that travels in a Qz::Ptr without its type
// being known (contexts of completion functions, payloads of notifications). Cast back with
// Qz::dynamicCast.
class QZ_API iObject : public virtual Qz::InternalRefCount
{
public:
    ~iObject() override;
};
