// Streams with a thread of their own that reads frame by frame.
//
// What such a thread leaves in the page cache is dropped again, so that a file that is played in a circle
// stays on the disk. The dropping is not the stream's work: see CacheDropper.

#include "CacheDropper.h"
#include "FrameSource.h"
#include "Streams.h"
#include "TestFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace {

constexpr std::size_t aheadPieceBytes = std::size_t{128} << 10;

class PreadSource : public FrameSource
{
public:
    PreadSource(const std::string& path, Mode mode, std::size_t pieceBytes)
        : file_(openForReading(path, mode)), pieceBytes_(pieceBytes)
    {}
    void read(unsigned char* buffer, std::size_t bytes, std::uint64_t position) override
    {
        for (std::size_t at = 0; at < bytes; at += pieceBytes_) {
            const std::size_t piece = std::min(pieceBytes_, bytes - at);
            require(::pread(file_.get(), buffer + at, piece, static_cast<off_t>(position + at)) > 0, "pread");
        }
    }

private:
    Descriptor file_;
    const std::size_t pieceBytes_;
};

std::unique_ptr<FrameSource> makeSource(const std::string& path, const Work& work)
{
    if (work.peer == "ffmpeg")
        return makeFfmpegSource(path);
    if (work.peer == "ahead")
        return std::make_unique<PreadSource>(path, Mode::cold, aheadPieceBytes);
    return std::make_unique<PreadSource>(path, Mode::unbuffered, work.block);
}

class ThreadStream : public PlayStream
{
public:
    ThreadStream(const std::string& path, const Work& work, std::uint64_t frames)
        : PlayStream(path, work, frames), path_(path), source_(makeSource(path, work))
    {
        for (unsigned i = 0; i < work.windowFrames; ++i)
            buffers_.push_back(std::make_unique<Buffer>(work.block));
        thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
    }

    void allow(std::uint64_t before) override
    {
        const std::lock_guard<std::mutex> hold(guard_);
        allowed_ = before;
        changed_.notify_one();
    }
    void consumed(std::uint64_t) override {}

private:
    void run(const std::stop_token& stop)
    {
        for (std::uint64_t frame = 0; frame < frames_; ++frame) {
            {
                std::unique_lock<std::mutex> hold(guard_);
                if (!changed_.wait(hold, stop, [&] { return frame < allowed_; }))
                    return;
            }
            source_->read(buffers_[frame % buffers_.size()]->data(), work_.block, positionOf(frame));
            if (work_.peer != "pread")
                dropFromCache(positionOf(frame));
            arrived(frame);
        }
    }

    // With the frame before it: what the kernel keeps in one piece across a border stays when only one side
    // is dropped.
    void dropFromCache(std::uint64_t position) const
    {
        const std::uint64_t before = std::min<std::uint64_t>(position, work_.block);
        CacheDropper::drop(path_, position - before, before + work_.block);
    }

    const std::string path_;
    std::unique_ptr<FrameSource> source_;
    std::vector<std::unique_ptr<Buffer>> buffers_;
    std::mutex guard_;
    std::condition_variable_any changed_;
    std::uint64_t allowed_ = 0;
    std::jthread thread_;  // last: its end needs all of the above
};

}  // namespace

std::unique_ptr<PlayStream> makeThreadStream(const std::string& path, const Work& work, std::uint64_t frames)
{
    return std::make_unique<ThreadStream>(path, work, frames);
}
