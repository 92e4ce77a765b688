#include "Sinks.h"

#include "Engine.h"
#include "Qz/Utf8.h"
#include "TestFile.h"
#include "media/MediaWriter.h"

#include <unistd.h>

#include <condition_variable>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace {

void flushToDevice(const std::string& path)
{
    const Descriptor file = openForReading(path, Mode::warm);
    require(::fdatasync(file.get()) == 0, "flush " + path);
}

// What DirectWrite takes: one frame's memory, which stays as it is until the completion.
class Frame : public iMemHolder
{
public:
    explicit Frame(std::size_t bytes) : memory_(bytes), bytes_(static_cast<unsigned>(bytes)) {}
    unsigned char* getBuffer() const override { return memory_.data(); }
    unsigned getSize() const override { return bytes_; }
    unsigned getUsed() const override { return bytes_; }
    void setUsed(unsigned) override {}

private:
    Buffer memory_;
    const unsigned bytes_;
};

class FsysSink : public FrameSink
{
public:
    FsysSink(const std::string& path, const Work& work)
        : path_(path),
          file_(openWithEngine(path, fsysOpenRead | fsysOpenWrite, work)),
          context_(new Counter(work.depth))
    {
        for (unsigned i = 0; i < work.depth; ++i)
            frames_.push_back(new Frame(work.block));
    }
    ~FsysSink() override { close(); }

    // The frames are filled once: a program of this kind hands over memory that its source has filled.
    void write(std::span<const unsigned char> frame) override
    {
        counter().takeOne();
        Qz::Ptr<iMemHolder> data =
            frame.size() == frames_[turn_]->getSize() ? frames_[turn_] : new Frame(frame.size());
        turn_ = (turn_ + 1) % frames_.size();
        Qz::Ptr<iObject> context = context_;
        if (file_->DirectWrite(data, false, &onWritten, context, false) != 1)
            throw std::runtime_error("DirectWrite");
    }
    void finish() override
    {
        close();
        if (counter().failed())
            throw std::runtime_error("a write failed");
        flushToDevice(path_);
    }

private:
    // Counts the frames that may be given to the engine.
    class Counter : public iObject
    {
    public:
        explicit Counter(unsigned depth) : free_(depth) {}
        void takeOne()
        {
            std::unique_lock<std::mutex> hold(guard_);
            changed_.wait(hold, [this] { return free_ > 0; });
            --free_;
        }
        void giveOne(bool succeeded)
        {
            const std::lock_guard<std::mutex> hold(guard_);
            failed_ |= !succeeded;
            ++free_;
            changed_.notify_one();
        }
        [[nodiscard]] bool failed()
        {
            const std::lock_guard<std::mutex> hold(guard_);
            return failed_;
        }

    private:
        std::mutex guard_;
        std::condition_variable changed_;
        unsigned free_;
        bool failed_ = false;
    };

    static void onWritten(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>&, RequestStatus status)
    {
        static_cast<Counter&>(*context).giveOne(status == eRequestSuccess);
    }
    [[nodiscard]] Counter& counter() const { return static_cast<Counter&>(*context_); }
    void close()
    {
        if (FsysFile* const file = std::exchange(file_, nullptr))
            FsysClose(file, nullptr);
    }

    const std::string path_;
    FsysFile* file_;
    const Qz::Ptr<iObject> context_;
    std::vector<Qz::Ptr<iMemHolder>> frames_;
    std::size_t turn_ = 0;
};

class MediaSink : public FrameSink
{
public:
    explicit MediaSink(const std::string& path) : writer_(fromUTF8(path))
    {
        if (!writer_.isOpen())
            throw std::runtime_error("MediaWriter: " + path);
    }
    void write(std::span<const unsigned char> frame) override
    {
        if (!writer_.write(std::as_bytes(frame)))
            throw std::runtime_error("MediaWriter::write");
    }
    void finish() override
    {
        if (!writer_.finish().complete)
            throw std::runtime_error("MediaWriter::finish");
    }

private:
    MediaWriter writer_;
};

class PwriteSink : public FrameSink
{
public:
    PwriteSink(const std::string& path, const Work& work, bool unbuffered)
        : file_(openForWriting(path, unbuffered)), memory_(work.block)
    {}
    void write(std::span<const unsigned char> frame) override
    {
        const ssize_t written =
            ::pwrite(file_.get(), memory_.data(), frame.size(), static_cast<off_t>(position_));
        require(written == static_cast<ssize_t>(frame.size()), "pwrite");
        position_ += frame.size();
    }
    void finish() override { require(::fdatasync(file_.get()) == 0, "flush"); }

private:
    Descriptor file_;
    Buffer memory_;
    std::uint64_t position_ = 0;
};

class OfstreamSink : public FrameSink
{
public:
    explicit OfstreamSink(const std::string& path)
        : path_(path), stream_(path, std::ios::binary | std::ios::trunc)
    {}
    void write(std::span<const unsigned char> frame) override
    {
        stream_.write(reinterpret_cast<const char*>(frame.data()),
                      static_cast<std::streamsize>(frame.size()));
        if (!stream_)
            throw std::runtime_error("ofstream");
    }
    void finish() override
    {
        stream_.close();
        flushToDevice(path_);
    }

private:
    const std::string path_;
    std::ofstream stream_;
};

}  // namespace

bool needsEngine(const std::string& sinkPeer) { return sinkPeer == "fsys" || sinkPeer == "media"; }

std::unique_ptr<FrameSink> makeSink(const std::string& peer, const std::string& path, const Work& work)
{
    ::unlink(path.c_str());
    if (peer == "fsys")
        return std::make_unique<FsysSink>(path, work);
    if (peer == "media")
        return std::make_unique<MediaSink>(path);
    if (peer == "pwrite" || peer == "pwrite-cache")
        return std::make_unique<PwriteSink>(path, work, peer == "pwrite");
    if (peer == "ofstream")
        return std::make_unique<OfstreamSink>(path);
    throw std::invalid_argument("no way of writing is called " + peer);
}
