// One read at a time through the engine.

#include "Engine.h"
#include "OneByOne.h"
#include "Peers.h"
#include "Stages.h"

#include <condition_variable>
#include <mutex>

namespace {

// Where the engine leaves the data of the one read. A condition variable, so that nobody spins.
struct Inbox : public iObject
{
    std::mutex guard;
    std::condition_variable changed;
    Stopwatch* stopwatch = nullptr;
    Claims* claims = nullptr;
    Stages* stages = nullptr;  // where they are looked at
    bool arrived = false;
    bool failed = false;

    static void onData(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
    {
        auto& inbox = static_cast<Inbox&>(*context);
        const std::lock_guard<std::mutex> hold(inbox.guard);
        inbox.stopwatch->data();
        if (inbox.stages)
            inbox.stages->delivered();
        if (status == eRequestSuccess)
            inbox.claims->arrived(data->getBuffer());
        else
            inbox.failed = true;
        inbox.arrived = true;
        inbox.changed.notify_one();
    }
};

Json timeReads(const Work& work, Stages* stages)
{
    const Engine engine(work);
    FsysFile* const file = openWithEngine(work.paths.at(0), fsysOpenRead, work);
    const Qz::Ptr<Inbox> inbox(new Inbox);
    inbox->stages = stages;
    Qz::Ptr<iObject> context = inbox;
    unsigned refusals = 0;
    const auto readOne = [&](std::uint64_t position, Stopwatch& stopwatch, Claims& claims) {
        inbox->stopwatch = &stopwatch;
        inbox->claims = &claims;
        inbox->arrived = false;
        if (stages)
            stages->begin();
        while (file->DirectRead(static_cast<long>(position), work.block, work.coalescable, &Inbox::onData,
                                context) != 1)
            ++refusals;
        stopwatch.called();
        std::unique_lock<std::mutex> hold(inbox->guard);
        inbox->changed.wait(hold, [&] { return inbox->arrived; });
        if (stages)
            stages->end();
    };
    Json report = timeEach(work, readOne, [stages] {
        if (stages)
            stages->clear();
    });
    FsysClose(file, nullptr);
    if (inbox->failed)
        throw std::runtime_error("a read failed");
    report["refused_full"] = refusals;
    return report;
}

}  // namespace

Json peers::latencyFsys(const Work& work) { return timeReads(work, nullptr); }

Json peers::latencyFsysStages(const Work& work)
{
    Stages stages;
    Json report = timeReads(work, &stages);
    stages.addTo(report);
    return report;
}
