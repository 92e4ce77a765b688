// Reads through MediaReader: the next read is asked for in the callback of the one before.

#include "Claims.h"
#include "Engine.h"
#include "Peers.h"
#include "Qz/Utf8.h"
#include "TestFile.h"
#include "media/MediaReader.h"

#include <atomic>
#include <memory>
#include <stdexcept>

namespace {

class Reading
{
public:
    Reading(const std::string& path, const Work& work)
        : work_(work), claims_(work, sizeOf(path)), reader_(fromUTF8(path))
    {
        if (!reader_.isOpen())
            throw std::runtime_error("MediaReader: " + path);
    }

    void rehearse()
    {
        claims_.rehearse();
        ask(work_.depth);
        wait();
        done_ = 0;
    }
    void begin()
    {
        claims_.begin();
        ask(work_.depth);
    }
    void wait() const
    {
        while (const unsigned underWay = underWay_)
            underWay_.wait(underWay);
    }
    [[nodiscard]] std::uint64_t done() const
    {
        if (failed_ || !claims_.allCame())
            throw std::runtime_error("a read failed or brought other bytes");
        return done_;
    }

private:
    void ask(unsigned depth)
    {
        // One more than the reads: so the last of them cannot end before all have begun.
        underWay_ = 1;
        for (unsigned i = 0; i < depth; ++i)
            askForOne();
        endOne();
    }
    void askForOne()
    {
        const auto position = claims_.next();
        if (!position)
            return;
        ++underWay_;
        reader_.readAsync(*position, work_.block, [this](const MediaReadResult& result) {
            if (result.data.size() == work_.block)
                claims_.arrived(result.data.bytes().data());
            else
                failed_ = true;
            ++done_;
            askForOne();
            endOne();
        });
    }
    void endOne()
    {
        if (--underWay_ == 0)
            underWay_.notify_one();
    }

    const Work& work_;
    Claims claims_;
    std::atomic<unsigned> underWay_{0};
    std::atomic<std::uint64_t> done_{0};
    std::atomic<bool> failed_{false};
    MediaReader reader_;
};

}  // namespace

Json peers::readMedia(const Work& work)
{
    const Engine engine(work);
    std::vector<std::unique_ptr<Reading>> readings;
    for (const std::string& path : work.paths)
        readings.push_back(std::make_unique<Reading>(path, work));
    for (const auto& reading : readings)
        reading->rehearse();
    Meter meter;
    meter.start();
    for (const auto& reading : readings)
        reading->begin();
    for (const auto& reading : readings)
        reading->wait();
    meter.stop();
    std::uint64_t done = 0;
    for (const auto& reading : readings)
        done += reading->done();
    readings.clear();
    return meter.report(done, done * work.block);
}
