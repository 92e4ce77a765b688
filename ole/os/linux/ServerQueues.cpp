#include "os/linux/ServerQueues.h"

bool ServerQueues::admit(LinuxAsyncContext* transfer)
{
    Server& server = servers_[transfer->transfer().serverIdentity()];
    if (server.underWay >= underWayMax_) {
        server.waiting.push(transfer);
        return false;
    }
    ++server.underWay;
    return true;
}

LinuxAsyncContext* ServerQueues::leave(const void* server)
{
    const auto found = servers_.find(server);
    if (found == servers_.end())
        return nullptr;
    if (LinuxAsyncContext* const next = found->second.waiting.pop())
        return next;
    if (--found->second.underWay == 0)
        servers_.erase(found);
    return nullptr;
}

LinuxAsyncContext* ServerQueues::takeWaiting(const void* server)
{
    const auto found = servers_.find(server);
    return found == servers_.end() ? nullptr : found->second.waiting.pop();
}
