#pragma once

#include "Qz/Ptr.h"
#include "Qz/iMemHolder.h"
#include "Qz/iObject.h"
#include "media/MediaReader.h"

#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

class FsysFile;
class ReadQueue;
struct PendingRead;

// An open file of the engine with what the queue has given to it. Guarded by the queue's guard.
struct EngineFile
{
    FsysFile* file = nullptr;
    unsigned underWay = 0;
    unsigned givers = 0;    // threads inside a call that gives it a piece, which may have ended by then
    unsigned failures = 0;  // failed reads stay in the engine's list until the file is closed
};

// ReadPiece: a range that the engine reads in one transfer, for one read, for several, or ahead of all.
//
// Threads: ReadQueue's guard guards what changes, until the piece has ended; then it stays as it is.
struct ReadPiece : public iObject
{
    enum class State { waiting, started, ended };

    ReadPiece(std::shared_ptr<ReadQueue> owner, std::uint64_t pieceOffset, unsigned pieceBytes, bool ahead)
        : queue(std::move(owner)),
          offset(pieceOffset),
          bytes(pieceBytes),
          madeAhead(ahead),
          inWindow(ahead),
          isUrgent(!ahead)
    {}
    [[nodiscard]] std::uint64_t end() const { return offset + bytes; }

    const std::shared_ptr<ReadQueue> queue;
    const std::uint64_t offset;
    const unsigned bytes;
    const bool madeAhead;  // for the read-ahead window, not for one read
    bool inWindow;         // wanted even when no read asks for it
    bool isUrgent;         // waits among those that reads ask for
    bool mayWait = true;   // for neighbours to join it
    State state = State::waiting;
    // Others were under way that the engine may have joined with this one: their failure is its failure.
    bool hadCompany = false;
    bool wasAtOnce = false;   // ended inside the call that gave it to the engine
    std::thread::id starter;  // is giving it to the engine now
    std::shared_ptr<EngineFile> file;
    std::vector<std::shared_ptr<PendingRead>> readers;  // that wait for it

    Qz::Ptr<iMemHolder> data;                       // of exactly bytes, after success
    MediaErrorCode outcome = MediaErrorCode::none;  // none after success
    unsigned platformCode = 0;
};

// PendingRead: a read that was asked for, made up of pieces without gaps.
//
// Threads: ReadQueue's guard until the last piece has ended; then whoever took it from the queue.
struct PendingRead
{
    std::uint64_t offset = 0;
    unsigned bytes = 0;
    std::vector<Qz::Ptr<ReadPiece>> pieces;         // in order
    unsigned piecesLeft = 1;                        // one more than the pieces until the read is complete
    MediaErrorCode verdict = MediaErrorCode::none;  // cancelled: whatever the pieces say
    bool cached = true;                             // all data was there when it was asked for
    bool retried = false;
    double askedMs = 0;
    double endedMs = 0;

    // Asynchronous reads: the queue hands them out when they have ended.
    bool isAsync = false;
    MediaReader::Ticket ticket = 0;
    MediaReader::Callback callback;
    std::optional<std::promise<MediaReadResult>> promise;  // instead of the callback

    [[nodiscard]] std::uint64_t end() const { return offset + bytes; }
};
