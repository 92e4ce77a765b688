// Playing and copying, through MediaReader and through the engine.

#include "ScenarioHelpers.h"
#include "Scenarios.h"

#include "fsys/EngineFixture.h"
#include "fsys/EngineState.h"
#include "fsys/MaterialLink.h"
#include "media/MediaReader.h"
#include "media/MediaWriter.h"

#include <future>
#include <vector>

namespace {

using fake::Op;
using Pace = FakeStage::Pace;

// Real time: long enough for a busy machine, short enough for every transfer that is dropped.
constexpr unsigned stallLimitMs = 1000;
constexpr unsigned playedClip = 1;
constexpr unsigned linkedClip = 2;

const std::string& playedBytes()
{
    static const std::string bytes = mediaBytes(900'000, 7);
    return bytes;
}

void prepareMedia(Stage& stage)
{
    stage.putBystander(clipFile(playedClip), playedBytes());
    stage.putBystander("Elsewhere/far.mov", playedBytes());
    stage.putBystander(clipFile(linkedClip), linkTo(stage, "Elsewhere/far.mov"));
    registerStage(stage);
    SystemCache::initialise(true);
    FsysInitialize();
}

// --- play

bool isRight(std::uint64_t offset, std::string_view got)
{
    return offset + got.size() <= playedBytes().size() &&
           std::string_view(playedBytes()).substr(offset, got.size()) == got;
}

void readNow(Stage& stage, MediaReader& reader, std::uint64_t offset, std::size_t size)
{
    std::vector<std::byte> buffer(size);
    MediaError error;
    const std::size_t got = reader.read(offset, buffer, &error);
    tellOf(stage, "the player", error);
    stage.check(error || got == std::min<std::uint64_t>(size, playedBytes().size() - offset),
                "bytes missing");
    stage.check(isRight(offset, {reinterpret_cast<const char*>(buffer.data()), got}), "wrong bytes played");
    stage.outcome(std::to_string(got));
}

void takeAnswer(Stage& stage, std::uint64_t offset, std::future<MediaReadResult>& future)
{
    const MediaReadResult result = future.get();
    tellOf(stage, "the player", result.error);
    stage.check(result.error || !result.data.empty(), "neither data nor an error");
    const auto bytes = result.data.bytes();
    stage.check(isRight(offset, {reinterpret_cast<const char*>(bytes.data()), bytes.size()}),
                "wrong bytes played");
    stage.outcome(std::to_string(bytes.size()));
}

void play(Stage& stage)
{
    DecodeFormat format(eHighRes);
    auto reader = std::make_unique<MediaReader>(clipNumber(linkedClip), format);
    tellOf(stage, "the player", reader->openError());
    if (!reader->isOpen())
        return;
    reader->setStallLimit(stallLimitMs);
    readNow(stage, *reader, 3, 5000);
    std::vector<std::future<MediaReadResult>> asked;
    for (std::uint64_t i = 0; i < 4; ++i)
        asked.push_back(reader->readAsync(i * 6000, 5000));
    reader->setReadAhead(200'000);
    for (std::uint64_t i = 0; i < 4; ++i)
        readNow(stage, *reader, 300'000 + i * 100'000, 100'000);
    // An asynchronous read whose transfer does not end is given up by the end of its reader.
    for (const auto& future : asked)
        if (reader &&
            future.wait_for(std::chrono::milliseconds(2 * stallLimitMs)) != std::future_status::ready)
            reader.reset();
    for (std::uint64_t i = 0; i < 4; ++i)
        takeAnswer(stage, i * 6000, asked[i]);
}

void playDeferred(Stage& stage)
{
    FsysSetImmediateRequestHandling(false);
    play(stage);
    FsysSetImmediateRequestHandling(true);
}

// --- the engine's reads, deferred

void readDeferred(Stage& stage)
{
    FsysFile* file = nullptr;
    if (FsysOpen(&file, stage.os(clipFile(playedClip)), 65536, fsysOpenRead, nullptr) != 1) {
        stage.told("the open failed");
        return;
    }
    FsysSetImmediateRequestHandling(false);
    struct Asked
    {
        std::uint64_t offset;
        unsigned bytes;
        Qz::Ptr<Answer> answer;
    };
    std::vector<Asked> asked;
    for (unsigned i = 0; i < 36; ++i) {
        Asked one{(i * 7919ULL) % 40 * 9000, 1000 + i * 300, Qz::Ptr<Answer>(new Answer)};
        Qz::Ptr<iObject> context = one.answer;
        if (file->DirectRead(static_cast<long>(one.offset), one.bytes, true, &Answer::completed, context) ==
            1)
            asked.push_back(one);
        else
            stage.told("a read was refused");
    }
    for (unsigned waits = 0; waits < 40; ++waits)
        stage.pass(50);
    FsysSetImmediateRequestHandling(true);
    stage.check(FsysClose(file, nullptr) == 1, "the file does not close");
    unsigned unanswered = 0;
    for (const Asked& one : asked) {
        stage.check(one.answer->calls <= 1, "called twice");
        unanswered += one.answer->calls == 0 ? 1U : 0U;
        if (one.answer->calls == 1 && !one.answer->succeeded)
            stage.told("a read failed");
        if (one.answer->succeeded)
            stage.check(one.answer->bytes.size() == one.bytes && isRight(one.offset, one.answer->bytes),
                        "wrong bytes read");
    }
    if (unanswered != 0)
        stage.told("reads were not answered");
}

// --- copy

void copy(Stage& stage)
{
    DecodeFormat format(eHighRes);
    MediaReader reader(clipNumber(playedClip), format);
    MediaWriterOptions options;
    options.hash = true;
    options.stallLimitMs = 3000;
    MediaWriter writer(clipNumber(3), {DiskManager::get_drive(0), fromUTF8("/" + clipFile(3))}, options);
    tellOf(stage, "the copier", reader.openError());
    tellOf(stage, "the copier", writer.error());
    if (!reader.isOpen() || !writer.isOpen()) {
        writer.abandon();
        return;
    }
    reader.setStallLimit(stallLimitMs);
    reader.setReadAhead(500'000);
    std::vector<std::byte> piece(200'000);
    bool good = true;
    for (std::uint64_t at = 0; good;) {
        MediaError error;
        const std::size_t got = reader.read(at, piece, &error);
        if (error.code == MediaErrorCode::beyondEnd)
            break;
        tellOf(stage, "the copier", error);
        good = !error && got != 0 && writer.write(std::span(piece).first(got));
        at += got;
    }
    if (!good) {
        tellOf(stage, "the copier", writer.error());
        writer.abandon();
        stage.check(!stage.get(clipFile(3)), "half a copy has its name");
        return;
    }
    const MediaRecording recorded = writer.finish();
    tellOf(stage, "the copier", recorded.error);
    stage.check(!recorded.complete || stage.get(clipFile(3)) == playedBytes(), "a copy that is not the same");
    stage.outcome(recorded.hash);
    stage.outcomeOf(clipFile(3));
}

}  // namespace

std::vector<Scenario> playingScenarios()
{
    return {
        {"play", Pace::threads, prepareMedia, play},
        {"play, deferred", Pace::threads, prepareMedia, playDeferred},
        {"read, deferred", Pace::driven, prepareMedia, readDeferred},
        {"copy", Pace::threads, prepareMedia, copy},
    };
}
