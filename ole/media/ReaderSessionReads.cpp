// The part of MediaReader::Session that serves synchronous and asynchronous reads.

#include "media/ReadData.h"
#include "media/ReaderSession.h"
#include "os/OS.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <system_error>
#include <utility>

namespace {

// A synchronous read goes in pieces, so that copying one overlaps with the transfer of the next.
constexpr std::size_t pieceBytesMax = std::size_t{4} << 20;
constexpr std::size_t piecesOutstanding = 4;

// For a thread that the system did not have.
constexpr std::chrono::milliseconds betweenTries(100);

double nowMs() { return OS()->getClock()->msecsPrecise(); }

}  // namespace

MediaError MediaReader::Session::notOpen() const
{
    MediaError error = source_->error(MediaErrorCode::notOpen);
    error.text += " (" + openError_.text + ")";
    return error;
}

// --- synchronous reads

std::size_t MediaReader::Session::read(std::uint64_t offset, std::span<std::byte> into, MediaError& error)
{
    const double askedMs = nowMs();
    {
        const std::lock_guard<std::mutex> hold(guard_);
        ++counters_.requests;
    }
    std::uint64_t bytes = into.size();
    FILE_INFO info;
    error = openError_ ? notOpen() : MediaError();
    if (error || into.empty())
        return 0;
    error = lookPatiently(info);
    if (!error)
        error = findRange(info, offset, bytes);
    if (error)
        return 0;
    bool cached = true;
    const std::size_t got = readRange(offset, into.first(bytes), info.size, error, cached);
    countAnswer(got, cached, nowMs() - askedMs);
    return got;
}

std::size_t MediaReader::Session::readRange(std::uint64_t offset, std::span<std::byte> into,
                                            std::uint64_t fileBytes, MediaError& error, bool& cached)
{
    note(offset, into.size());
    std::deque<Read> asked;
    std::size_t planned = 0;
    std::size_t got = 0;
    while (got < into.size()) {
        while (asked.size() < piecesOutstanding && planned < into.size()) {
            const std::size_t bytes = std::min(pieceBytesMax, into.size() - planned);
            asked.push_back(ask(offset + planned, static_cast<unsigned>(bytes)));
            planned += bytes;
            if (planned == into.size())
                fillWindow(fileBytes);
            queue_->start(ReadQueue::Effort::startOnly);
        }
        const Read read = std::move(asked.front());
        asked.pop_front();
        error = awaitAndJudge(read);
        if (error)
            break;
        copyData(*read, into.subspan(got));
        got += read->bytes;
        cached = cached && wasCached(*read);
    }
    for (const Read& left : asked)
        queue_->abandon(left);
    return got;
}

MediaReader::Session::Read MediaReader::Session::ask(std::uint64_t offset, unsigned bytes)
{
    Read read = std::make_shared<PendingRead>();
    read->offset = offset;
    read->bytes = bytes;
    {
        const std::lock_guard<std::mutex> hold(guard_);
        plan(read);
    }
    // Always true for a read that is waited for.
    (void)queue_->submit(read);
    return read;
}

MediaError MediaReader::Session::awaitAndJudge(const Read& read)
{
    MediaError error;
    const std::chrono::milliseconds stallLimit(stallLimitMs_.load());
    bool ended = queue_->await(*read, stallLimit);
    if (ended && judge(*read, error) == Judgement::again && queue_->askAlone(read)) {
        ended = queue_->await(*read, stallLimit);
        if (ended)
            judge(*read, error);
    }
    if (ended)
        return error;
    queue_->abandon(read);
    return source_->error(MediaErrorCode::givenUp);
}

// --- asynchronous reads

MediaReader::Ticket MediaReader::Session::readAsync(std::uint64_t offset, std::uint64_t bytes,
                                                    Callback callback)
{
    const Read read = std::make_shared<PendingRead>();
    read->offset = offset;
    read->callback = std::move(callback);
    return begin(read, bytes);
}

std::future<MediaReadResult> MediaReader::Session::readAsync(std::uint64_t offset, std::uint64_t bytes)
{
    const Read read = std::make_shared<PendingRead>();
    read->offset = offset;
    read->promise.emplace();
    std::future<MediaReadResult> result = read->promise->get_future();
    begin(read, bytes);
    return result;
}

MediaReader::Ticket MediaReader::Session::begin(const Read& read, std::uint64_t bytes)
{
    read->isAsync = true;
    read->askedMs = nowMs();
    {
        const std::lock_guard<std::mutex> hold(guard_);
        ++counters_.requests;
        read->ticket = ++lastTicket_;
    }
    const Ticket ticket = read->ticket;
    FILE_INFO info;
    MediaError error;
    if (openError_)
        error = notOpen();
    else if (bytes > asyncBytesMax)
        error = source_->error(MediaErrorCode::invalidArgument);
    else if (bytes != 0)
        error = lookBriefly(info);
    if (!error && bytes != 0)
        error = findRange(info, read->offset, bytes);
    if (error || bytes == 0) {
        answer(*read, {{}, error});
        return ticket;
    }
    read->bytes = static_cast<unsigned>(bytes);
    if (!startWorker())
        answer(*read, {{}, source_->error(MediaErrorCode::noMemory)});
    else if (!submit(read, info.size))
        answer(*read, {{}, source_->error(MediaErrorCode::cancelled)});
    return ticket;
}

// False when the reader is being closed.
bool MediaReader::Session::submit(const Read& read, std::uint64_t fileBytes)
{
    note(read->offset, read->bytes);
    {
        // Together, so that nobody finds a ticket whose read is still being made.
        const std::lock_guard<std::mutex> hold(guard_);
        plan(read);
        if (!queue_->submit(read))
            return false;
        asyncReads_.emplace(read->ticket, read);
    }
    fillWindow(fileBytes);
    queue_->start(ReadQueue::Effort::startOnly);
    return true;
}

void MediaReader::Session::answer(PendingRead& read, MediaReadResult result)
{
    if (read.promise)
        read.promise->set_value(std::move(result));
    else if (!callbacks_.post(std::move(read.callback), std::move(result)))
        queue_->wake();  // the worker tries again
}

bool MediaReader::Session::cancel(Ticket ticket)
{
    const std::lock_guard<std::mutex> hold(guard_);
    const auto found = asyncReads_.find(ticket);
    return found != asyncReads_.end() && queue_->cancel(found->second);
}

std::size_t MediaReader::Session::cancelAll()
{
    const std::lock_guard<std::mutex> hold(guard_);
    std::size_t cancelled = 0;
    for (const auto& [ticket, read] : asyncReads_)
        cancelled += queue_->cancel(read) ? 1U : 0U;
    return cancelled;
}

void MediaReader::Session::setReadAhead(std::uint64_t bytes)
{
    if (openError_ || (bytes != 0 && !startWorker()))
        return;
    {
        const std::lock_guard<std::mutex> hold(guard_);
        window_.setBytes(bytes);
    }
    if (bytes == 0)
        dropWindow();
}

// --- the worker

bool MediaReader::Session::startWorker()
{
    const std::lock_guard<std::mutex> hold(guard_);
    // A read that comes while the reader closes is turned away by the queue.
    if (worker_.joinable() || closing_)
        return true;
    try {
        worker_ = std::thread([this] { work(); });
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void MediaReader::Session::work()
{
    for (;;) {
        const std::uint64_t seen = queue_->generation();
        queue_->start(ReadQueue::Effort::all);
        checkEndedAhead();
        concludeEnded();
        if (workerEnds_)
            return;
        // Somebody may be waiting for a callback that found no thread, and may ask for nothing else.
        queue_->waitForChange(seen, callbacks_.start() ? std::chrono::milliseconds(0) : betweenTries);
    }
}

// At once, not when somebody asks for the data: the file may have grown again by then, over zeros that were
// never in it.
void MediaReader::Session::checkEndedAhead()
{
    for (const Piece& piece : queue_->takeEndedAhead())
        if (checkFile(piece->end()))
            return;
}

void MediaReader::Session::concludeEnded()
{
    while (const Read read = queue_->takeEnded())
        conclude(read);
}

void MediaReader::Session::conclude(const Read& read)
{
    MediaReadResult result;
    if (judge(*read, result.error) == Judgement::again && queue_->askAlone(read))
        return;
    if (!result.error) {
        result.data = viewData(*read);
        if (result.data.empty())
            result.error = source_->error(MediaErrorCode::noMemory);
    }
    {
        const std::lock_guard<std::mutex> hold(guard_);
        asyncReads_.erase(read->ticket);
    }
    countAnswer(result.data.size(), wasCached(*read), read->endedMs - read->askedMs);
    answer(*read, std::move(result));
}
