#pragma once

#include "Qz/iObject.h"
#include "os/Export.h"

// iAsyncContext: one asynchronous transfer on its way, from acceptance to the end of its completion.
//
// Made by iFileManager::createAsyncContext with the owner that the completion will name, and used for
// one transfer at a time. The platform keeps its own reference from acceptance until the completion has
// been executed, so a caller may drop its own at any moment.
class OS_API iAsyncContext : public iObject
{
public:
    // owner is what the completion will name; it is not looked at.
    explicit iAsyncContext(void* owner) : owner_(owner) {}
    // The owner that it was made with.
    [[nodiscard]] void* getOwner() const { return owner_; }

private:
    void* owner_;
};
