#pragma once

#include "media/CallbackThread.h"
#include "media/MediaReader.h"
#include "media/ReadAhead.h"
#include "media/ReadQueue.h"
#include "media/ReadSource.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

// MediaReader::Session: what a reader does, from the opening to the close.
//
// A read is planned (its pieces taken from the read-ahead window, or made), submitted, and judged when it has
// ended: only then is it known whether its data is the file's. Synchronous reads do all of it on the
// caller's thread.
//
// Threads:    any; open and close once, before and after all else. A worker, from the first asynchronous read
//             or read-ahead on, starts what waits and judges what has ended. Callbacks have a thread of their
//             own: one may wait for data, which the worker brings.
// Locks:      guard_, then the queue's. Neither is held around a call into the engine, a callback or the
//             release of data.
class MediaReader::Session
{
public:
    Session(const LightweightString<wchar_t>& path, bool isClip);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    [[nodiscard]] MediaError open();
    // For a reader that never opens: what its reads answer.
    void refuse(const MediaError& reason) { openError_ = reason; }
    void close();

    [[nodiscard]] const LightweightString<wchar_t>& target() const { return source_->target(); }
    [[nodiscard]] std::uint64_t size() const;
    std::size_t read(std::uint64_t offset, std::span<std::byte> into, MediaError& error);
    Ticket readAsync(std::uint64_t offset, std::uint64_t bytes, Callback callback);
    [[nodiscard]] std::future<MediaReadResult> readAsync(std::uint64_t offset, std::uint64_t bytes);
    bool cancel(Ticket ticket);
    std::size_t cancelAll();
    void setReadAhead(std::uint64_t bytes);
    void setStallLimit(unsigned limitMs) { stallLimitMs_ = limitMs; }
    [[nodiscard]] Counters counters() const;

private:
    using Read = ReadQueue::Read;
    using Piece = ReadQueue::Piece;
    enum class Judgement { final, again };

    // --- planning
    // What the file is like now. The first waits for a server that stalls as long as reads may; the other as
    // long as any question, and takes what was last seen for an answer.
    [[nodiscard]] MediaError lookPatiently(FILE_INFO& info);
    [[nodiscard]] MediaError lookBriefly(FILE_INFO& info);
    [[nodiscard]] MediaError findRange(const FILE_INFO& info, std::uint64_t offset, std::uint64_t& bytes);
    [[nodiscard]] bool wasRewritten(const FILE_INFO& info);
    void note(std::uint64_t offset, std::uint64_t bytes);
    void plan(const Read& read);  // REQUIRES: guard_ is held
    void fillWindow(std::uint64_t fileBytes);
    void dropWindow();
    void release(const std::vector<Piece>& dropped);
    // --- synchronous reads
    std::size_t readRange(std::uint64_t offset, std::span<std::byte> into, std::uint64_t fileBytes,
                          MediaError& error, bool& cached);
    [[nodiscard]] Read ask(std::uint64_t offset, unsigned bytes);
    [[nodiscard]] MediaError awaitAndJudge(const Read& read);
    // --- asynchronous reads
    Ticket begin(const Read& read, std::uint64_t bytes);
    [[nodiscard]] bool submit(const Read& read, std::uint64_t fileBytes);
    [[nodiscard]] MediaError notOpen() const;
    void answer(PendingRead& read, MediaReadResult result);
    void concludeEnded();
    void conclude(const Read& read);
    [[nodiscard]] bool startWorker();
    void work();
    void checkEndedAhead();
    // --- judging
    Judgement judge(const PendingRead& read, MediaError& error);
    [[nodiscard]] MediaError checkFile(std::uint64_t end);
    void countAnswer(std::uint64_t bytes, bool cached, double waitMs);

    const std::shared_ptr<ReadSource> source_;
    const std::shared_ptr<ReadQueue> queue_;
    MediaError openError_;
    CallbackThread callbacks_;

    mutable std::mutex guard_;  // guards what follows
    ReadAhead window_;
    std::map<Ticket, Read> asyncReads_;  // that have not been concluded
    Ticket lastTicket_ = 0;
    Counters counters_;
    std::thread worker_;
    bool closing_ = false;
    std::optional<FILE_INFO> seen_;  // at the last look for a read
    std::atomic<bool> workerEnds_{false};
    std::atomic<unsigned> stallLimitMs_{60'000};
};
