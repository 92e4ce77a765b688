// A stream on the engine: each frame is one DirectRead, and its memory is the engine's own.

#include "Engine.h"
#include "Streams.h"

#include <mutex>

namespace {

class FsysStream : public PlayStream
{
public:
    FsysStream(const std::string& path, const Work& work, std::uint64_t frames)
        : PlayStream(path, work, frames),
          held_(work.windowFrames),
          file_(openWithEngine(path, fsysOpenRead, work))
    {}
    ~FsysStream() override { FsysClose(file_, nullptr); }

    void allow(std::uint64_t before) override
    {
        allowed_ = before;
        ask();
    }
    void consumed(std::uint64_t frame) override { hold(frame, Qz::Ptr<iMemHolder>()); }

private:
    struct Context : public iObject
    {
        Context(FsysStream& owner, std::uint64_t number) : stream(owner), frame(number) {}
        FsysStream& stream;
        const std::uint64_t frame;
    };

    static void onData(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
    {
        const auto& own = static_cast<Context&>(*context);
        if (status == eRequestSuccess) {
            own.stream.hold(own.frame, data);
            own.stream.arrived(own.frame);
        }
        ++own.stream.ended_;
        own.stream.ask();
    }
    void hold(std::uint64_t frame, Qz::Ptr<iMemHolder> data)
    {
        const std::lock_guard<std::mutex> lock(guard_);
        held_[frame % held_.size()].swap(data);
    }
    // A refused frame is asked for again at the next completion or the next tick of the clock.
    void ask()
    {
        std::uint64_t seen = 0;
        do {
            if (asking_.exchange(true))
                return;
            seen = ended_;
            while (next_ < allowed_ && next_ < frames_ && askForOne())
                ++next_;
            asking_ = false;
        } while (ended_ != seen);
    }
    bool askForOne()
    {
        Qz::Ptr<iObject> context(new Context(*this, next_));
        return file_->DirectRead(static_cast<long>(positionOf(next_)), work_.block, work_.coalescable,
                                 &onData, context) == 1;
    }

    std::mutex guard_;
    std::vector<Qz::Ptr<iMemHolder>> held_;
    FsysFile* const file_;
    std::atomic<std::uint64_t> allowed_{0};
    std::atomic<std::uint64_t> ended_{0};
    std::atomic<bool> asking_{false};
    std::uint64_t next_ = 0;  // for the asking thread
};

}  // namespace

std::unique_ptr<PlayStream> makeFsysStream(const std::string& path, const Work& work, std::uint64_t frames)
{
    return std::make_unique<FsysStream>(path, work, frames);
}
