#include "CacheDropper.h"

#include "TestFile.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace {

struct Piece
{
    std::string path;
    std::uint64_t position;
    std::uint64_t bytes;
};

class Dropper
{
public:
    void add(Piece piece)
    {
        const std::lock_guard<std::mutex> hold(guard_);
        pieces_.push_back(std::move(piece));
        if (!thread_.joinable())
            thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
        changed_.notify_one();
    }
    double finish()
    {
        if (thread_.joinable()) {
            thread_.request_stop();
            thread_.join();
        }
        return cpuUs_;
    }

private:
    void run(const std::stop_token& stop)
    {
        std::unique_lock<std::mutex> hold(guard_);
        while (changed_.wait(hold, stop, [this] { return !pieces_.empty(); })) {
            const Piece piece = pieces_.front();
            pieces_.pop_front();
            hold.unlock();
            const Descriptor file = openForReading(piece.path, Mode::cold);
            ::posix_fadvise(file.get(), static_cast<off_t>(piece.position), static_cast<off_t>(piece.bytes),
                            POSIX_FADV_DONTNEED);
            hold.lock();
        }
        rusage usage{};
        getrusage(RUSAGE_THREAD, &usage);
        cpuUs_ = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e6 +
                 static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
    }

    std::mutex guard_;
    std::condition_variable_any changed_;
    std::deque<Piece> pieces_;
    double cpuUs_ = 0;
    std::jthread thread_;
};

Dropper& dropper()
{
    static Dropper one;
    return one;
}

}  // namespace

void CacheDropper::drop(const std::string& path, std::uint64_t position, std::uint64_t bytes)
{
    dropper().add({path, position, bytes});
}

double CacheDropper::finish() { return dropper().finish(); }
