// The engine itself: its start, its end with files open, and its synchronous operations.

#include "ScenarioHelpers.h"
#include "Scenarios.h"

#include "fsys/EngineFixture.h"

#include <cerrno>
#include <vector>

namespace {

using fake::Op;
using Pace = FakeStage::Pace;

const std::string& fileBytes()
{
    static const std::string bytes = mediaBytes(40'000, 11);
    return bytes;
}

void prepareFiles(Stage& stage)
{
    for (unsigned i = 0; i < 4; ++i)
        stage.putBystander(clipFile(i), fileBytes());
    for (unsigned i = 10; i < 13; ++i)
        stage.put(clipFile(i), "");
}

// --- init

void start(Stage& stage)
{
    stage.check(FsysInitialize() == 1, "the engine does not start");
    DiskManager::init(stage.os("project"), false);
    SystemCache::initialise(true);
    stage.outcome(std::to_string(SystemCache::getScanCounts().clips) + " clips");
    FsysFile* file = nullptr;
    if (FsysOpen(&file, stage.os(clipFile(1)), 0, fsysOpenRead, nullptr) != 1) {
        stage.told("the open failed");
        return;
    }
    const Qz::Ptr<Answer> answer(new Answer);
    Qz::Ptr<iObject> context = answer;
    if (file->DirectRead(512, 1000, false, &Answer::completed, context) != 1)
        stage.told("a read was refused");
    for (unsigned waits = 0; waits < 40 && answer->calls == 0; ++waits)
        stage.pass(50);
    stage.check(FsysClose(file, nullptr) == 1, "the file does not close");
    stage.check(!answer->succeeded || answer->bytes == fileBytes().substr(512, 1000), "wrong bytes read");
    if (!answer->succeeded)
        stage.told(answer->calls == 0 ? "the read was not answered" : "the read failed");
    stage.outcome(answer->succeeded ? "read" : "not read");
}

// --- uninitialise with files open

// Reads and writes under way, writes gathered, requests queued that nobody has started.
class Busy
{
public:
    explicit Busy(Stage& stage) : stage_(stage)
    {
        for (unsigned i = 0; i < 4; ++i)
            open(clipFile(i), fsysOpenRead);
        for (unsigned i = 10; i < 13; ++i)
            open(clipFile(i), fsysOpenWrite);
    }
    void ask()
    {
        for (FsysFile* const file : files_) {
            for (long at : {0L, 9000L})
                read(*file, at);
            if (!FsysFileTestAccess::cache(*file))
                continue;
            write(*file, 4096);
            write(*file, 4096);
            write(*file, 100);
        }
    }
    // Each second file of a list stays open, by rule, and belongs to its opener.
    void giveBackWhatStaysOpen(const std::vector<FsysFile*>& closed)
    {
        for (FsysFile* const file : files_)
            if (std::find(closed.begin(), closed.end(), file) == closed.end())
                FsysFile::release(file);
    }
    void settle()
    {
        unsigned failed = 0;
        for (const Qz::Ptr<Answer>& answer : answers_) {
            stage_.check(answer->calls <= 1, "called twice");
            failed += answer->calls == 1 && !answer->succeeded ? 1U : 0U;
        }
        if (failed != 0)
            stage_.told("a request failed");
    }

private:
    void open(const std::string& path, unsigned flags)
    {
        FsysFile* file = nullptr;
        if (FsysOpen(&file, stage_.os(path), 65536, flags, nullptr) == 1)
            files_.push_back(file);
        else
            stage_.told("an open failed");
    }
    void read(FsysFile& file, long at)
    {
        if (!FsysFileTestAccess::cache(file))
            count(file.DirectRead(at, 3000, false, &Answer::completed, next()));
    }
    void write(FsysFile& file, std::size_t size)
    {
        Qz::Ptr<iMemHolder> data(new TestData(fileBytes().substr(0, size)));
        count(file.DirectWrite(data, false, &Answer::completed, next(), false));
    }
    Qz::Ptr<iObject>& next()
    {
        answers_.push_back(Qz::Ptr<Answer>(new Answer));
        context_ = answers_.back();
        return context_;
    }
    void count(unsigned result)
    {
        if (result != 1)
            stage_.told("a request was refused");
    }

    Stage& stage_;
    std::vector<FsysFile*> files_;
    std::vector<Qz::Ptr<Answer>> answers_;
    Qz::Ptr<iObject> context_;
};

std::vector<FsysFile*> closedByTheEnd()
{
    std::vector<FsysFile*> closed;
    for (const auto* const list : {&FsysTestAccess::readFiles(), &FsysTestAccess::writeFiles()})
        for (unsigned i = 0; i < list->size(); i += 2)
            closed.push_back((*list)[i]);
    return closed;
}

void end(Stage& stage)
{
    FsysInitialize();
    Busy busy(stage);
    busy.ask();
    stage.pass(2);  // some have come back
    busy.ask();
    const auto closed = closedByTheEnd();
    stage.holdPolls(true);
    FsysUninitialize(Shutdown::eNormalExit);
    stage.holdPolls(false);
    busy.settle();
    busy.giveBackWhatStaysOpen(closed);
    for (unsigned i = 10; i < 13 && stage.isRepeatable(); ++i)
        stage.outcomeOf(clipFile(i));
}

// --- synchronous operations

void readAndWrite(Stage& stage)
{
    FsysInitialize();
    FsysFile* file = nullptr;
    if (FsysOpen(&file, stage.os(clipFile(10)), 0, fsysOpenWrite, nullptr) != 1) {
        stage.told("the open failed");
        return;
    }
    std::string written;
    for (unsigned i = 0; i < 6; ++i) {
        const std::string piece = fileBytes().substr(i * 1000, 1000);
        if (file->Write(piece.data(), 1000) != 1)
            stage.told("a write failed");
    }
    FsysClose(file, nullptr);
    FsysFile* reading = nullptr;
    if (FsysOpen(&reading, stage.os(clipFile(1)), 0, fsysOpenRead, nullptr) != 1) {
        stage.told("the open failed");
        return;
    }
    reading->Seek(500, eSeekAbsolute);
    std::string piece(700, ' ');
    for (unsigned i = 0; i < 4; ++i)
        if (reading->Read(piece.data(), 700) != 1)
            stage.told("a read failed");
    FsysClose(reading, nullptr);
    stage.outcomeOf(clipFile(10));
}

// --- a file that grows

void append(Stage& stage)
{
    FsysInitialize();
    const std::string before = mediaBytes(1024, 20);
    stage.put(clipFile(20), before);
    FsysFile* file = nullptr;
    if (FsysOpen(&file, stage.os(clipFile(20)), 0, fsysOpenWrite, nullptr) == 1) {
        const Qz::Ptr<Answer> answer(new Answer);
        Qz::Ptr<iMemHolder> data(new TestData(fileBytes().substr(0, 2048)));
        Qz::Ptr<iObject> context = answer;
        if (file->DirectWrite(data, false, &Answer::completed, context, false) != 1)
            stage.told("the write was refused");
        FsysClose(file, nullptr);
        if (answer->calls == 1 && !answer->succeeded)
            stage.told("the write failed");
    } else {
        stage.told("the open failed");
    }
    const std::string now = stage.get(clipFile(20)).value_or("");
    stage.check(now.substr(0, 1024) == before, "what was there before is damaged");
    stage.outcomeOf(clipFile(20));
}

}  // namespace

std::vector<Scenario> engineScenarios()
{
    return {
        {"init",
         Pace::driven,
         prepareFiles,
         start,
         true,
         {{Op::listDirectory, ENOENT, "a location need not have both folders"}}},
        {"uninitialise, files open",
         Pace::driven,
         prepareFiles,
         end,
         true,
         {{Op::completion, 0, "a read of a file that has closed meanwhile has nobody to tell"}}},
        {"read and write", Pace::driven, prepareFiles, readAndWrite},
        {"append", Pace::driven, prepareFiles, append},
    };
}
