#pragma once

#include "os/linux/ServerQueues.h"
#include "os/linux/TransferBackend.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// ServerWorkers: threads for the transfers of files whose server may stop answering.
//
// Not the workers of a ring: those belong to the thread that submits, and keep it from ending while a server
// does not answer. Each server has a few threads of its own, so that one that is dead holds up neither the
// disks nor another server.
//
// Threads:    submit from any. Finished transfers go to the sink, on the worker's thread.
// Lifetime:   REQUIRES that no transfer is under way at the end.
class ServerWorkers
{
public:
    static constexpr unsigned perServerMax = 8;

    ServerWorkers(const std::string& portName, TransferSink& sink);
    ~ServerWorkers();
    ServerWorkers(const ServerWorkers&) = delete;
    ServerWorkers& operator=(const ServerWorkers&) = delete;

    // Takes the transfer over. REQUIRES: isSlow.
    void submit(LinuxAsyncContext* transfer);

private:
    void work();
    // With mutex_ held: false when there is no thread at all.
    bool offer(LinuxAsyncContext* transfer);
    bool startWorker();

    const std::string name_;
    TransferSink& sink_;
    std::mutex mutex_;
    std::condition_variable arrived_;
    ServerQueues servers_{perServerMax};
    TransferList waiting_;  // for a worker; those that wait for a place on their server are not here
    std::vector<std::thread> workers_;
    unsigned idle_ = 0;    // workers that wait
    unsigned queued_ = 0;  // transfers in waiting_
    bool ending_ = false;
};
