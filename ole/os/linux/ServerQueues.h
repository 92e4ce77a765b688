#pragma once

#include "os/linux/TransferList.h"

#include <map>

// ServerQueues: bounds what is under way on each server, so that one that does not answer holds up no other:
// the workers that wait for it are its own.
//
// Threads:    one at a time.
// Ownership:  none; transfers wait in lists linked through themselves.
class ServerQueues
{
public:
    explicit ServerQueues(unsigned underWayMax) : underWayMax_(underWayMax) {}

    // True when the transfer may start. False: it waits here. REQUIRES: isSlow.
    [[nodiscard]] bool admit(LinuxAsyncContext* transfer);
    // One that was admitted has ended: the next of its server, which is admitted herewith, or null.
    [[nodiscard]] LinuxAsyncContext* leave(const void* server);
    // Takes out one that waits for the server, or null.
    [[nodiscard]] LinuxAsyncContext* takeWaiting(const void* server);

private:
    struct Server
    {
        unsigned underWay = 0;
        TransferList waiting;
    };

    const unsigned underWayMax_;
    std::map<const void*, Server> servers_;  // those with something under way
};
