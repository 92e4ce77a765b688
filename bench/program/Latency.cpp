// One read at a time, timed by the caller.
//
// call      until the call that asks has returned
// to_data   until the data is there: for the engine, until its completion function runs
// to_caller until the thread that asked goes on
// How the time between call and data divides among the engine's own stations cannot be seen from here.

#include "Claims.h"
#include "Engine.h"
#include "Peers.h"
#include "TestFile.h"

#include <liburing.h>
#include <unistd.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace {

class Stopwatch
{
public:
    void begin() { start_ = SteadyClock::now(); }
    void called() { called_ = SteadyClock::now(); }
    void data() { data_ = SteadyClock::now(); }
    void goneOn()
    {
        const auto now = SteadyClock::now();
        call_.push_back(microseconds(called_ - start_));
        toData_.push_back(microseconds(data_ - start_));
        toCaller_.push_back(microseconds(now - start_));
    }
    void addTo(Json& report) const
    {
        report["latency_us"] = {{"call", percentiles(call_)},
                                {"to_data", percentiles(toData_)},
                                {"to_caller", percentiles(toCaller_)}};
    }
    [[nodiscard]] std::uint64_t count() const { return call_.size(); }

private:
    SteadyClock::time_point start_;
    SteadyClock::time_point called_;
    SteadyClock::time_point data_;
    std::vector<double> call_;
    std::vector<double> toData_;
    std::vector<double> toCaller_;
};

// Runs readOne(position, stopwatch) until the work is over.
template <class ReadOne>
Json timeEach(const Work& work, const ReadOne& readOne)
{
    Claims claims(work, sizeOf(work.paths.at(0)));
    Stopwatch stopwatch;
    const auto readAll = [&] {
        while (const auto position = claims.next()) {
            stopwatch.begin();
            readOne(*position, stopwatch, claims);
            stopwatch.goneOn();
        }
    };
    claims.rehearse();
    readAll();
    stopwatch = {};
    Meter meter;
    meter.start();
    claims.begin();
    readAll();
    meter.stop();
    if (!claims.allCame())
        throw std::runtime_error("other bytes came than were asked for");
    Json report = meter.report(stopwatch.count(), stopwatch.count() * work.block);
    stopwatch.addTo(report);
    return report;
}

// Where the engine leaves the data of the one read. A condition variable, so that nobody spins.
struct Inbox : public iObject
{
    std::mutex guard;
    std::condition_variable changed;
    Stopwatch* stopwatch = nullptr;
    Claims* claims = nullptr;
    bool arrived = false;
    bool failed = false;

    static void onData(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
    {
        auto& inbox = static_cast<Inbox&>(*context);
        const std::lock_guard<std::mutex> hold(inbox.guard);
        inbox.stopwatch->data();
        if (status == eRequestSuccess)
            inbox.claims->arrived(data->getBuffer());
        else
            inbox.failed = true;
        inbox.arrived = true;
        inbox.changed.notify_one();
    }
};

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

Json peers::latencyFsys(const Work& work)
{
    const Engine engine(work);
    FsysFile* const file = openWithEngine(work.paths.at(0), fsysOpenRead, work);
    const Qz::Ptr<Inbox> inbox(new Inbox);
    Qz::Ptr<iObject> context = inbox;
    unsigned refusals = 0;
    Json report = timeEach(work, [&](std::uint64_t position, Stopwatch& stopwatch, Claims& claims) {
        inbox->stopwatch = &stopwatch;
        inbox->claims = &claims;
        inbox->arrived = false;
        while (file->DirectRead(static_cast<long>(position), work.block, work.coalescable, &Inbox::onData,
                                context) != 1)
            ++refusals;
        stopwatch.called();
        std::unique_lock<std::mutex> hold(inbox->guard);
        inbox->changed.wait(hold, [&] { return inbox->arrived; });
    });
    FsysClose(file, nullptr);
    if (inbox->failed)
        throw std::runtime_error("a read failed");
    report["refused_full"] = refusals;
    return report;
}

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
