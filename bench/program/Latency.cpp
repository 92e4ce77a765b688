// One read at a time without the engine.

#include "OneByOne.h"
#include "Peers.h"

#include <liburing.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

// A thread that sleeps until it is given something to do, and again.
class Station
{
public:
    explicit Station(std::function<void()> work) : work_(std::move(work)), thread_([this] { run(); }) {}
    ~Station()
    {
        hand(State::over);
        thread_.join();
    }
    Station(const Station&) = delete;
    Station& operator=(const Station&) = delete;

    void call() { hand(State::called); }

private:
    enum class State { idle, called, over };

    void hand(State state)
    {
        {
            const std::lock_guard<std::mutex> hold(guard_);
            state_ = state;
        }
        changed_.notify_one();
    }
    void run()
    {
        for (;;) {
            {
                std::unique_lock<std::mutex> hold(guard_);
                changed_.wait(hold, [this] { return state_ != State::idle; });
                if (state_ == State::over)
                    return;
                state_ = State::idle;
            }
            work_();
        }
    }

    const std::function<void()> work_;
    std::mutex guard_;
    std::condition_variable changed_;
    State state_ = State::idle;
    std::thread thread_;  // last: it uses the rest
};

}  // namespace

Json peers::latencyPread(const Work& work)
{
    const Descriptor file = openForReading(work.paths.at(0), work.mode);
    const Buffer buffer(work.block);
    return timeEach(work, [&](std::uint64_t position, Stopwatch& stopwatch, Claims& claims) {
        require(::pread(file.get(), buffer.data(), work.block, static_cast<off_t>(position)) > 0, "pread");
        stopwatch.called();
        stopwatch.data();
        claims.arrived(buffer.data());
    });
}

Json peers::latencyRelay(const Work& work)
{
    const Descriptor file = openForReading(work.paths.at(0), work.mode);
    const Buffer buffer(work.block);
    std::uint64_t place = 0;
    Stopwatch* watch = nullptr;
    std::mutex guard;
    std::condition_variable changed;
    bool arrived = false;
    Station completes([&] {
        watch->data();
        const std::lock_guard<std::mutex> hold(guard);
        arrived = true;
        changed.notify_one();
    });
    Station reads([&] {
        require(::pread(file.get(), buffer.data(), work.block, static_cast<off_t>(place)) > 0, "pread");
        completes.call();
    });
    return timeEach(work, [&](std::uint64_t position, Stopwatch& stopwatch, Claims& claims) {
        place = position;
        watch = &stopwatch;
        arrived = false;
        reads.call();
        stopwatch.called();
        std::unique_lock<std::mutex> hold(guard);
        changed.wait(hold, [&] { return arrived; });
        claims.arrived(buffer.data());
    });
}

Json peers::latencyUring(const Work& work)
{
    const Descriptor file = openForReading(work.paths.at(0), work.mode);
    const Buffer buffer(work.block);
    io_uring ring{};
    require(io_uring_queue_init(1, &ring, 0) == 0, "io_uring_queue_init");
    Json report = timeEach(work, [&](std::uint64_t position, Stopwatch& stopwatch, Claims& claims) {
        io_uring_prep_read(io_uring_get_sqe(&ring), file.get(), buffer.data(), work.block, position);
        io_uring_submit(&ring);
        stopwatch.called();
        io_uring_cqe* entry = nullptr;
        require(io_uring_wait_cqe(&ring, &entry) == 0 && entry->res > 0, "read");
        io_uring_cqe_seen(&ring, entry);
        stopwatch.data();
        claims.arrived(buffer.data());
    });
    io_uring_queue_exit(&ring);
    return report;
}
