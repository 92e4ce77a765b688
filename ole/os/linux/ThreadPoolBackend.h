#pragma once

#include "os/linux/TransferBackend.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// ThreadPoolBackend: transfers on threads of our own, for machines that refuse rings.
//
// Threads:    workers are started as transfers arrive, up to a bound, and stay.
class ThreadPoolBackend final : public TransferBackend
{
public:
    static constexpr unsigned workersMax = 16;

    ThreadPoolBackend(const char* portName, TransferSink& sink);
    ~ThreadPoolBackend() override;

    void submit(LinuxAsyncContext* transfer, bool more) override;
    void flush() override {}
    void collect(TransferList& finished) override;
    void interrupt() override;
    [[nodiscard]] bool copiesInSubmit() const override { return false; }
    [[nodiscard]] bool hasFinished() override;

private:
    void work();
    bool startWorker();

    const std::string name_;
    TransferSink& sink_;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::condition_variable finishedOrInterrupted_;
    TransferList waiting_;
    TransferList finished_;
    std::vector<std::thread> workers_;
    unsigned idle_ = 0;    // workers that wait
    unsigned queued_ = 0;  // transfers that wait for one
    bool interrupted_ = false;
    bool ending_ = false;
};
