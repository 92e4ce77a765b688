// Reads through the engine. Each file's reads are asked for by whatever thread its completions run on, one
// thread at a time, so that they stay in order.
//
// A refusal means "again after the next completion". Where nothing is under way that could complete, the main
// thread asks again after a moment, which the report counts as a stall. How many reads were under way on
// average is reported too: too many deferred reads are refused long before a great depth is reached, unless
// "ForcePollLimit" fits the depth.

#include "Claims.h"
#include "Engine.h"
#include "Peers.h"
#include "TestFile.h"
#include "os/BackendChoice.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace {

constexpr auto stallPause = std::chrono::milliseconds(1);

// News for the asking thread: a read has ended, or only that it is to ask.
constexpr std::uint64_t oneEnded = 1;
constexpr std::uint64_t askAgain = std::uint64_t{1} << 32;

class FileReader;

// What the completions of one file are given. The reader outlives them.
struct Context : public iObject
{
    explicit Context(FileReader& owner) : reader(owner) {}
    FileReader& reader;
};

class FileReader
{
public:
    FileReader(const std::string& path, const Work& work)
        : work_(work),
          claims_(work, sizeOf(path)),
          file_(openWithEngine(path, fsysOpenRead, work)),
          context_(new Context(*this))
    {}
    ~FileReader() { FsysClose(file_, nullptr); }
    FileReader(const FileReader&) = delete;
    FileReader& operator=(const FileReader&) = delete;

    void beginRehearsal()
    {
        claims_.rehearse();
        ask(askAgain);
    }
    void endRehearsal()
    {
        wait();
        exhausted_ = finished_ = false;
        refusedFull_ = refusedDeferred_ = stalls_ = 0;
        ended_ = underWaySum_ = looks_ = 0;
    }
    void begin()
    {
        claims_.begin();
        ask(askAgain);
    }
    // Until every position was read.
    void wait()
    {
        std::unique_lock<std::mutex> hold(guard_);
        for (;;) {
            changed_.wait(hold, [this] { return finished_ || stalled_; });
            if (finished_)
                return;
            stalled_ = false;
            ++stalls_;
            hold.unlock();
            std::this_thread::sleep_for(stallPause);
            ask(askAgain);
            hold.lock();
        }
    }
    void addTo(Json& report) const
    {
        if (failed_ != 0 || !claims_.allCame())
            throw std::runtime_error("a read failed or brought other bytes");
        report["refused_full"] = report.value("refused_full", 0U) + refusedFull_;
        report["refused_deferred"] = report.value("refused_deferred", 0U) + refusedDeferred_;
        report["under_way_mean"] = report.value("under_way_mean", 0.0) +
                                   static_cast<double>(underWaySum_) / static_cast<double>(looks_);
        report["stalls"] = report.value("stalls", 0U) + stalls_;
    }
    [[nodiscard]] std::uint64_t ended() const { return ended_; }

private:
    static void onData(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
    {
        FileReader& reader = static_cast<Context&>(*context).reader;
        if (status == eRequestSuccess)
            reader.claims_.arrived(data->getBuffer());
        else
            ++reader.failed_;
        reader.ask(oneEnded);
    }

    // Fills up to the depth. What comes while another thread asks is left to that thread: whoever finds no
    // news that wait to be looked at is the asking thread until it has looked at all.
    void ask(std::uint64_t news)
    {
        if (news_.fetch_add(news, std::memory_order_acq_rel) != 0)
            return;
        bool idle = false;
        bool over = false;
        do {
            const std::uint64_t ended = news % askAgain;
            ended_ += ended;
            underWay_ -= static_cast<unsigned>(ended);
            while (underWay_ < work_.depth && askForOne()) {
            }
            idle = underWay_ == 0;
            over = exhausted_;
            underWaySum_ += underWay_;
            ++looks_;
            news = news_.fetch_sub(news, std::memory_order_acq_rel) - news;
        } while (news != 0);
        if (idle)
            tellMain(over ? finished_ : stalled_);
    }
    bool askForOne()
    {
        if (!waiting_ && !(waiting_ = claims_.next())) {
            exhausted_ = true;
            return false;
        }
        const unsigned result = file_->DirectRead(static_cast<long>(*waiting_), work_.block,
                                                  work_.coalescable, &onData, context_);
        if (result == 1) {
            ++underWay_;
            waiting_.reset();
            return true;
        }
        ++(result == 0 ? refusedFull_ : refusedDeferred_);
        return false;
    }
    void tellMain(bool& what)
    {
        const std::lock_guard<std::mutex> hold(guard_);
        what = true;
        changed_.notify_all();
    }

    const Work& work_;
    Claims claims_;
    FsysFile* const file_;
    std::atomic<std::uint64_t> news_{0};  // sum of what the asking thread has not looked at or done with
    // Of the asking thread:
    Qz::Ptr<iObject> context_;
    std::optional<std::uint64_t> waiting_;  // claimed and refused
    bool exhausted_ = false;
    unsigned refusedFull_ = 0;
    unsigned refusedDeferred_ = 0;
    unsigned underWay_ = 0;
    std::uint64_t ended_ = 0;
    std::uint64_t underWaySum_ = 0;
    std::uint64_t looks_ = 0;

    std::atomic<unsigned> failed_{0};
    unsigned stalls_ = 0;
    std::mutex guard_;
    std::condition_variable changed_;
    bool finished_ = false;
    bool stalled_ = false;
};

}  // namespace

Json peers::readFsys(const Work& work)
{
    const Engine engine(work);
    std::vector<std::unique_ptr<FileReader>> readers;
    for (const std::string& path : work.paths)
        readers.push_back(std::make_unique<FileReader>(path, work));
    // All at once, or they would pass the same memory on and meet the rest of it later.
    for (const auto& reader : readers)
        reader->beginRehearsal();
    for (const auto& reader : readers)
        reader->endRehearsal();
    Meter meter;
    meter.start();
    for (const auto& reader : readers)
        reader->begin();
    for (const auto& reader : readers)
        reader->wait();
    meter.stop();
    std::uint64_t done = 0;
    for (const auto& reader : readers)
        done += reader->ended();
    Json report = meter.report(done, done * work.block);
    for (const auto& reader : readers)
        reader->addTo(report);
    report["backend"] = os::backendChoiceText();
    return report;
}
