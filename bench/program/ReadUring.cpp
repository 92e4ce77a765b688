// A bare io_uring loop, plain and with everything the kernel offers, one ring and one thread per file.

#include "Claims.h"
#include "Peers.h"
#include "TestFile.h"

#include <liburing.h>
#include <sys/uio.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cerrno>
#include <stdexcept>
#include <thread>

namespace {

// Buffers of one allocation, so that a tuned run can hold all of them in one piece of huge pages.
class RingReader
{
public:
    RingReader(const std::string& path, const Work& work, bool tuned)
        : work_(work),
          tuned_(tuned),
          file_(openForReading(path, work.mode)),
          claims_(work, sizeOf(path)),
          memory_(std::size_t{work.block} * work.depth, tuned)
    {}
    ~RingReader()
    {
        if (made_)
            io_uring_queue_exit(&ring_);
    }
    RingReader(const RingReader&) = delete;
    RingReader& operator=(const RingReader&) = delete;

    // On the thread that reads: a ring with deferred task work belongs to one thread.
    void setUp()
    {
        const unsigned flags = tuned_ ? IORING_SETUP_SINGLE_ISSUER | IORING_SETUP_DEFER_TASKRUN : 0U;
        check(io_uring_queue_init(work_.depth, &ring_, flags), "io_uring_queue_init");
        made_ = true;
        if (!tuned_)
            return;
        const iovec all{memory_.data(), memory_.size()};
        check(io_uring_register_buffers(&ring_, &all, 1), "register buffers");
        const int fd = file_.get();
        check(io_uring_register_files(&ring_, &fd, 1), "register file");
    }
    std::uint64_t run()
    {
        std::uint64_t done = 0;
        unsigned underWay = 0;
        for (unsigned slot = 0; slot < work_.depth; ++slot)
            underWay += submitNext(slot);
        const unsigned batch = tuned_ ? std::max(1U, work_.depth / 4) : 1U;
        while (underWay > 0) {
            const int entered = io_uring_submit_and_wait(&ring_, std::min(batch, underWay));
            if (entered != -EINTR)
                check(entered, "submit");
            unsigned head = 0;
            unsigned seen = 0;
            io_uring_cqe* entry = nullptr;
            io_uring_for_each_cqe(&ring_, head, entry)
            {
                check(entry->res, "read");
                const auto slot = static_cast<unsigned>(entry->user_data);
                claims_.arrived(buffer(slot));
                ++seen;
                underWay -= 1;
                underWay += submitNext(slot);
            }
            io_uring_cq_advance(&ring_, seen);
            done += seen;
        }
        return done;
    }
    [[nodiscard]] Claims& claims() { return claims_; }

private:
    static void check(int result, const char* what)
    {
        if (result < 0) {
            errno = -result;
            require(false, what);
        }
    }
    [[nodiscard]] unsigned char* buffer(unsigned slot) const
    {
        return memory_.data() + std::size_t{slot} * work_.block;
    }
    unsigned submitNext(unsigned slot)
    {
        const auto position = claims_.next();
        if (!position)
            return 0;
        io_uring_sqe* const entry = io_uring_get_sqe(&ring_);
        if (tuned_) {
            io_uring_prep_read_fixed(entry, 0, buffer(slot), work_.block, *position, 0);
            entry->flags |= IOSQE_FIXED_FILE;
        } else {
            io_uring_prep_read(entry, file_.get(), buffer(slot), work_.block, *position);
        }
        entry->user_data = slot;
        return 1;
    }

    const Work& work_;
    const bool tuned_;
    Descriptor file_;
    Claims claims_;
    Buffer memory_;
    io_uring ring_{};
    bool made_ = false;
};

Json readThrough(const Work& work, bool tuned)
{
    std::vector<std::unique_ptr<RingReader>> readers;
    for (const std::string& path : work.paths)
        readers.push_back(std::make_unique<RingReader>(path, work, tuned));
    std::atomic<std::uint64_t> done{0};
    Meter meter;
    std::barrier together(static_cast<std::ptrdiff_t>(readers.size()), [&]() noexcept {
        meter.start();
        for (const auto& reader : readers)
            reader->claims().begin();
    });
    // A failure in the rehearsal ends the program: the others would wait for ever.
    const auto rehearse = [&](RingReader& reader) noexcept {
        reader.setUp();
        reader.claims().rehearse();
        reader.run();
        together.arrive_and_wait();
    };
    const auto readOn = [&](RingReader& reader) {
        rehearse(reader);
        done += reader.run();
    };
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 1; i < readers.size(); ++i)
            threads.emplace_back([&, i] { readOn(*readers[i]); });
        readOn(*readers[0]);
    }
    meter.stop();
    for (const auto& reader : readers)
        if (!reader->claims().allCame())
            throw std::runtime_error("other bytes came than were asked for");
    return meter.report(done, done * work.block);
}

}  // namespace

Json peers::readUring(const Work& work) { return readThrough(work, false); }
Json peers::readUringTuned(const Work& work) { return readThrough(work, true); }
