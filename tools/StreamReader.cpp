#include "StreamReader.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

constexpr unsigned coalesceLength = 1U << 20;
constexpr auto refusalPause = std::chrono::milliseconds(1);
constexpr unsigned refusalsWithNothingUnderWay = 5000;

}  // namespace

// What completions and the reader share; outlives whichever goes first.
struct StreamReader::Inbox
{
    std::mutex guard;
    std::condition_variable changed;
    std::uint64_t ended = 0;
};

class StreamReader::Request : public iObject
{
public:
    Request(std::shared_ptr<Inbox> inbox, std::uint64_t position, unsigned bytes) : inbox_(std::move(inbox))
    {
        piece_.position = position;
        piece_.bytes = bytes;
        piece_.asked = Clock::now();
    }

    void end(const Qz::Ptr<iMemHolder>& data, RequestStatus status)
    {
        const std::lock_guard<std::mutex> hold(inbox_->guard);
        piece_.ended = Clock::now();
        piece_.data = data;
        piece_.succeeded = status == eRequestSuccess;
        ended_ = true;
        ++inbox_->ended;
        inbox_->changed.notify_all();
    }
    // REQUIRES: the inbox's guard is held.
    [[nodiscard]] bool hasEnded() const { return ended_; }
    [[nodiscard]] const Piece& piece() const { return piece_; }

private:
    std::shared_ptr<Inbox> inbox_;
    Piece piece_;
    bool ended_ = false;
};

StreamReader::StreamReader(const LightweightString<wchar_t>& path) : inbox_(std::make_shared<Inbox>())
{
    FsysOpen(&file_, path, coalesceLength, fsysOpenRead, nullptr);
}

StreamReader::~StreamReader()
{
    if (file_)
        FsysClose(file_, nullptr);
}

void StreamReader::completed(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
{
    static_cast<Request&>(*context).end(data, status);
}

bool StreamReader::ask(std::uint64_t position, unsigned bytes)
{
    const Qz::Ptr<Request> request(new Request(inbox_, position, bytes));
    Qz::Ptr<iObject> context = request;
    unsigned refusals = 0;
    std::uint64_t ended = 0;
    for (;;) {
        {
            const std::lock_guard<std::mutex> hold(inbox_->guard);
            ended = inbox_->ended;
        }
        if (file_->DirectRead(static_cast<long>(position), bytes, true, &completed, context) == 1)
            break;
        if (asked_.empty()) {
            // Finished reads fill the list until a pass evicts them.
            if (++refusals > refusalsWithNothingUnderWay)
                return false;
            std::this_thread::sleep_for(refusalPause);
            continue;
        }
        std::unique_lock<std::mutex> hold(inbox_->guard);
        inbox_->changed.wait_for(hold, std::chrono::milliseconds(50), [&] { return inbox_->ended != ended; });
    }
    asked_.push_back(request);
    return true;
}

StreamReader::Piece StreamReader::next()
{
    const Qz::Ptr<Request> request = asked_.front();
    asked_.pop_front();
    std::unique_lock<std::mutex> hold(inbox_->guard);
    inbox_->changed.wait(hold, [&] { return request->hasEnded(); });
    return request->piece();
}

std::optional<StreamReader::Piece> StreamReader::nextIfEnded()
{
    {
        const std::lock_guard<std::mutex> hold(inbox_->guard);
        if (asked_.empty() || !asked_.front()->hasEnded())
            return std::nullopt;
    }
    return next();
}
