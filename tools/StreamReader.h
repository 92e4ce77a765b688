#pragma once

#include "Qz/LightweightString.h"
#include "Qz/Ptr.h"
#include "Qz/iMemHolder.h"
#include "fsys/FsysEntry.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

// StreamReader: reads ranges of one file through DirectRead and hands them out in the order in which they
// were asked for.
//
// A range that the engine refuses for now (its list is full) is asked for again when another has ended.
// Threads: one thread uses a reader; completions come on the engine's threads.
class StreamReader
{
public:
    using Clock = std::chrono::steady_clock;

    struct Piece
    {
        std::uint64_t position = 0;
        unsigned bytes = 0;
        bool succeeded = false;
        Qz::Ptr<iMemHolder> data;  // a view of exactly these bytes; empty after an error
        Clock::time_point asked;   // when the engine took the request
        Clock::time_point ended;   // when its completion function ran
    };

    // Opens path with the engine; isOpen tells whether that went well.
    explicit StreamReader(const LightweightString<wchar_t>& path);
    // Closes the file; pieces still under way are given up.
    ~StreamReader();
    StreamReader(const StreamReader&) = delete;
    StreamReader& operator=(const StreamReader&) = delete;

    [[nodiscard]] bool isOpen() const { return file_ != nullptr; }
    // False when the engine refused although nothing is under way. REQUIRES: isOpen, bytes > 0.
    bool ask(std::uint64_t position, unsigned bytes);
    [[nodiscard]] std::size_t underWay() const { return asked_.size(); }
    // Waits for the piece that was asked for first. REQUIRES: underWay() > 0.
    Piece next();
    // The same if it has ended already.
    std::optional<Piece> nextIfEnded();

private:
    struct Inbox;
    class Request;

    static void completed(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status);

    std::shared_ptr<Inbox> inbox_;
    FsysFile* file_ = nullptr;
    std::deque<Qz::Ptr<Request>> asked_;
};
