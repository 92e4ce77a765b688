// Recording: through MediaWriter, and through the engine's write cache.

#include "ScenarioHelpers.h"
#include "Scenarios.h"

#include "fsys/EngineFixture.h"
#include "media/MediaReader.h"
#include "media/MediaWriter.h"
#include "media/Recovery.h"

#include <cerrno>
#include <vector>

namespace {

using fake::Op;
using Pace = FakeStage::Pace;

constexpr unsigned recordedClip = 1;

void prepareEngine(Stage& stage)
{
    registerStage(stage);
    FsysInitialize();
    stage.putBystander(clipFile(2), "another clip");
    stage.putBystander(clipFile(2, ".mov.partial"), "another recording");
}

// --- record

const std::string& recordedBytes()
{
    static const std::string bytes = mediaBytes(2'700'000, 1);
    return bytes;
}

// Writes all bytes in pieces; the ends of the whole writes that were accepted.
std::vector<std::uint64_t> writeAll(Stage& stage, MediaWriter& writer, const std::string& bytes,
                                    std::size_t piece, std::uint64_t* flushed)
{
    std::vector<std::uint64_t> ends{0};
    bool failed = !writer.isOpen();
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        const std::size_t size = std::min(piece, bytes.size() - at);
        const bool written = writer.write(std::as_bytes(std::span(bytes.data() + at, size)));
        stage.check(!(failed && written), "a failure was forgotten");
        failed = !written;
        if (written)
            ends.push_back(at + size);
        if (at / piece % 3 == 2 && writer.flush())
            *flushed = ends.back();
        failed = failed || writer.error();
    }
    return ends;
}

void checkRecorded(Stage& stage, const MediaRecording& recorded, const std::string& bytes,
                   const std::vector<std::uint64_t>& ends, std::uint64_t flushed)
{
    const auto file = stage.get(clipFile(recordedClip));
    const auto partial = stage.get(clipFile(recordedClip, ".mov.partial"));
    const auto& left = file ? file : partial;
    stage.check(recorded.complete != static_cast<bool>(recorded.error), "complete and an error, or neither");
    stage.check(recorded.hasFinalName == file.has_value(), "the name is not the one that was told");
    stage.check(!(file && partial), "a recording under two names");
    stage.check(std::find(ends.begin(), ends.end(), recorded.bytes) != ends.end(), "not whole writes");
    stage.check(recorded.bytes >= flushed, "what was flushed is lost");
    stage.check(!recorded.complete || recorded.bytes == bytes.size(), "complete, but not all");
    if (!recorded.path.empty() && left)
        stage.check(left->substr(0, recorded.bytes) == bytes.substr(0, recorded.bytes),
                    "wrong bytes recorded");
    if (recorded.complete)
        stage.check(file && *file == bytes, "complete, and not the bytes that were written");
    if (!recorded.path.empty() && recorded.bytes != 0)
        stage.check(left && left->size() >= recorded.bytes, "fewer bytes than told");
}

void record(Stage& stage)
{
    MediaWriterOptions options;
    options.bytesInFlight = 2 << 20;
    options.stallLimitMs = 3000;
    options.hash = true;
    std::uint64_t flushed = 0;
    const MaterialFilename name(DiskManager::get_drive(0), fromUTF8("/" + clipFile(recordedClip)));
    MediaWriter writer(clipNumber(recordedClip), name, options);
    const auto ends = writeAll(stage, writer, recordedBytes(), 200'000, &flushed);
    const MediaRecording recorded = writer.finish();
    tellOf(stage, "the recorder", recorded.error);
    checkRecorded(stage, recorded, recordedBytes(), ends, flushed);
    stage.check(SystemCache::fileExists(clipNumber(recordedClip)) == recorded.hasFinalName,
                "the index does not know what became of the recording");
    stage.outcome(recorded.complete ? "complete " + recorded.hash : "not complete");
    stage.outcomeOf(clipFile(recordedClip));
}

void recordAndAbandon(Stage& stage)
{
    MediaWriterOptions options;
    options.stallLimitMs = 3000;
    MediaWriter writer(stage.os(clipFile(recordedClip)), options);
    std::uint64_t flushed = 0;
    writeAll(stage, writer, recordedBytes().substr(0, 1'300'000), 300'000, &flushed);
    tellOf(stage, "the recorder", writer.error());
    writer.abandon();
    if (!writer.finish().path.empty())
        stage.told("the recorder: it is left");
    stage.check(!stage.get(clipFile(recordedClip)), "an abandoned recording has its name");
    const bool left = stage.get(clipFile(recordedClip, ".mov.partial")).has_value();
    stage.outcome(left ? "left" : "removed");
}

// --- record small

constexpr std::size_t pieceBytes = 7001;
constexpr unsigned pieces = 60;

// What the cache holds goes to the disk when the file seeks, and after that at its close. Of what a failing
// disk loses nothing else may be there: bytes of the run without faults, or none.
void checkSmall(Stage& stage, const std::string& path)
{
    const std::string now = stage.get(path).value_or("");
    const std::string* const whole = stage.baseline(path);
    if (!whole) {
        stage.keep(path, now);
        return;
    }
    for (std::size_t i = 0; i < now.size(); ++i)
        if (now[i] != '\0' && (i >= whole->size() || now[i] != (*whole)[i])) {
            stage.wrong("wrong byte at " + std::to_string(i));
            return;
        }
}

void recordSmall(Stage& stage)
{
    const std::string path = "Sound/small.wav";
    stage.put(path, "");
    const std::string bytes = mediaBytes(pieceBytes * pieces, 3);
    FsysFile* file = nullptr;
    if (FsysOpen(&file, stage.os(path), 65536, fsysOpenWrite, nullptr) != 1) {
        stage.told("the open failed");
        return;
    }
    for (unsigned i = 0; i < pieces; ++i) {
        const Qz::Ptr<Answer> answer(new Answer);
        Qz::Ptr<iMemHolder> data(new TestData(bytes.substr(i * pieceBytes, pieceBytes)));
        Qz::Ptr<iObject> context = answer;
        const unsigned result = file->DirectWrite(data, false, &Answer::completed, context, false);
        stage.check(answer->calls == (result == 1 ? 1U : 0U), "not called once for each write");
        if (result != 1)
            stage.told("a write was refused");
        else if (!answer->succeeded)
            stage.told("a write failed");
    }
    file->Seek(0, eSeekRelative);
    stage.check(FsysClose(file, nullptr) == 1, "the file does not close");
    checkSmall(stage, path);
    stage.outcomeOf(path);
}

// --- recover

void prepareUnfinished(Stage& stage)
{
    prepareEngine(stage);
    stage.put(clipFile(3, ".mov.partial"), mediaBytes(5000, 3));
    stage.put(clipFile(4, ".mov.partial"), mediaBytes(7000, 4));
}

void recover(Stage& stage)
{
    const std::vector<UnfinishedRecording> found = findUnfinished(DiskManager::get_drive(0));
    stage.outcome(std::to_string(found.size()) + " found");
    for (const UnfinishedRecording& recording : found) {
        const std::string path = toUTF8(recording.path).str();
        const bool removes = path.find(toUTF8(clipNumber(4).asWString()).str()) != std::string::npos;
        if (path.find(toUTF8(clipNumber(2).asWString()).str()) != std::string::npos)
            continue;  // stays for its owner
        if (recording.inUse)
            stage.told("recovery: in use, or nobody can tell");
        stage.outcome(path + ", " + std::to_string(recording.goodBytes));
        tellOf(stage, "recovery", removes ? removeUnfinished(recording) : finishUnfinished(recording));
    }
    for (const char* const ending : {".mov", ".mov.partial"}) {
        const auto third = stage.get(clipFile(3, ending));
        stage.check(!third || *third == mediaBytes(5000, 3), "a recovered recording is damaged");
        const auto fourth = stage.get(clipFile(4, ending));
        stage.check(!fourth || *fourth == mediaBytes(7000, 4), "an unfinished recording is damaged");
    }
    stage.check(stage.get(clipFile(3)) || stage.get(clipFile(3, ".mov.partial")), "a recording is lost");
    stage.outcomeOf(clipFile(3));
    stage.outcomeOf(clipFile(4, ".mov.partial"));
}

}  // namespace

std::vector<Scenario> recordingScenarios()
{
    return {
        {"record", Pace::driven, prepareEngine, record},
        {"record and abandon", Pace::driven, prepareEngine, recordAndAbandon},
        {"record small", Pace::driven, prepareEngine, recordSmall, false},
        {"recover",
         Pace::driven,
         prepareUnfinished,
         recover,
         true,
         {{Op::listDirectory, ENOENT, "a location need not have both folders"}}},
    };
}
