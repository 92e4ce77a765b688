#include "Stages.h"

#include <utility>

namespace {

constexpr std::array<const char*, 5> names = {"queue", "kick", "pass", "transfer", "callback"};

}  // namespace

class Stages::Event : public iThreadEvent
{
public:
    Event(Stages& stages, Qz::Ptr<iThreadEvent> target) : stages_(stages), target_(std::move(target)) {}
    // A waiter may drop this object as soon as it wakes.
    void set() override
    {
        const Qz::Ptr<iThreadEvent> target = target_;
        stages_.pass(kicked);
        target->set();
    }
    void reset() override { target_->reset(); }
    void wait() override { target_->wait(); }
    bool wait(unsigned timeoutMs) override
    {
        const bool came = target_->wait(timeoutMs);
        if (came)
            stages_.pass(woken);
        return came;
    }

private:
    Stages& stages_;
    const Qz::Ptr<iThreadEvent> target_;
};

class Stages::Threads : public ForwardingThreadServices
{
public:
    Threads(Stages& stages, iThreadServices& target) : ForwardingThreadServices(target), stages_(stages) {}
    Qz::Ptr<iThreadEvent> createEvent(unsigned manualReset, unsigned signalled, const char* name) override
    {
        return Qz::Ptr<iThreadEvent>(
            new Event(stages_, ForwardingThreadServices::createEvent(manualReset, signalled, name)));
    }

private:
    Stages& stages_;
};

class Stages::File : public ForwardingFile
{
public:
    File(Stages& stages, const Qz::Ptr<iFile>& target) : ForwardingFile(target), stages_(stages) {}
    bool asyncRead(std::uint64_t position, void* buffer, std::size_t count,
                   const Qz::Ptr<iAsyncContext>& context) override
    {
        stages_.pass(handed);
        return ForwardingFile::asyncRead(position, buffer, count, context);
    }

private:
    Stages& stages_;
};

class Stages::Files : public ForwardingFileManager
{
public:
    Files(Stages& stages, iFileManager& target) : ForwardingFileManager(target), stages_(stages) {}
    Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                        unsigned mode) override
    {
        const Qz::Ptr<iFile> file = ForwardingFileManager::open(path, access, creation, share, mode);
        return file ? Qz::Ptr<iFile>(new File(stages_, file)) : file;
    }

private:
    Stages& stages_;
};

// Stands between a port and the engine.
class Stages::Receiver : public QzDC::Receiver<IOCompletionCommand>
{
public:
    Receiver(Stages& stages, const IOCompletionCommand& command) : stages_(stages), command_(command) {}
    int executeCommand(IOCompletionCommand&, CompletionPortHandlerCallbackContext& context) override
    {
        stages_.pass(completed);
        command_.execute(context);
        return 1;
    }

private:
    Stages& stages_;
    IOCompletionCommand command_;
};

class Stages::Platform : public ForwardingOS
{
public:
    Platform(Stages& stages, iOperatingSystem& target)
        : ForwardingOS(target),
          stages_(stages),
          threads_(stages, *target.getThreadServices()),
          files_(stages, *target.getFileManager())
    {
        use(threads_);
        use(files_);
    }
    Qz::Ptr<iCompletionPort> createCompletionPort(const char* name, const IOCompletionCommand& command,
                                                  int minThreads, int maxThreads, int concurrency,
                                                  int priority) override
    {
        receivers_.push_back(std::make_unique<Receiver>(stages_, command));
        return ForwardingOS::createCompletionPort(name, IOCompletionCommand(receivers_.back().get()),
                                                  minThreads, maxThreads, concurrency, priority);
    }

private:
    Stages& stages_;
    Threads threads_;
    Files files_;
    std::vector<std::unique_ptr<Receiver>> receivers_;  // outlive the engine's ports
};

Stages::Stages() : platform_(new Platform(*this, *OS())) { setOS(platform_.get()); }

Stages::~Stages() { setOS(nullptr); }

void Stages::pass(Station station)
{
    SteadyClock::rep none = 0;
    times_[station].compare_exchange_strong(none, SteadyClock::now().time_since_epoch().count());
}

void Stages::begin()
{
    for (auto& time : times_)
        time = 0;
    pass(asked);
}

void Stages::end()
{
    // The poll thread's own timer was faster than the kick.
    if (times_[woken] == 0 || times_[woken] > times_[handed])
        return;
    for (std::size_t i = 0; i < durations_.size(); ++i)
        durations_[i].push_back(microseconds(SteadyClock::duration(times_[i + 1] - times_[i])));
}

void Stages::clear()
{
    for (auto& stage : durations_)
        stage.clear();
}

void Stages::addTo(Json& report) const
{
    for (std::size_t i = 0; i < durations_.size(); ++i)
        report["stages_us"][names[i]] = percentiles(durations_[i]);
}
