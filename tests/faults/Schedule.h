#pragma once

#include "WriteModel.h"
#include "fsys/EngineFixture.h"

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

// Schedule: what may happen to the engine, at random, and a model that says what must come of it.
//
// Several callers read and write several files on the fake platform in virtual time. Which call comes next,
// when a pass runs, which transfer ends next and how, when memory is short, a file closes or the engine
// ends: all of it follows from the seed. While a caller waits, the others go on.
//
// Oracle:
// - each accepted request is called back once; a refused one never, nor one whose file has closed;
// - a read that succeeds has all its bytes, and they are the file's (zero behind a transfer that came short);
//   it fails only if something was made to fail that it needs;
// - a transfer writes what was asked to be written at that place, and each request once; after the close a
//   file holds what WriteModel says;
// - counters, buffers, contexts and handles are what the listed requests and the transfers add up to;
// - nothing is left at the end.
class Schedule
{
public:
    explicit Schedule(std::uint64_t seed);
    ~Schedule();
    Schedule(const Schedule&) = delete;
    Schedule& operator=(const Schedule&) = delete;

    // Empty, or what went wrong, with the last things that happened before.
    [[nodiscard]] std::string run();

    struct Counts
    {
        unsigned long requests = 0;
        unsigned long transfers = 0;
        unsigned long faults = 0;
        unsigned long merged = 0;
        unsigned long bytesChecked = 0;
        Counts& operator+=(const Counts& other);
    };
    [[nodiscard]] const Counts& counts() const { return counts_; }

private:
    struct Request;
    class Caller;
    struct OpenFile
    {
        FsysFile* file = nullptr;
        bool writes = false;
        bool busy = false;    // a caller waits in it
        unsigned number = 0;  // of its path
        WriteModel model;
        bool isExact = true;  // the model knows all of its bytes
    };
    using Files = std::vector<std::unique_ptr<OpenFile>>;

    // --- what may happen
    void step();
    void stepWhileWaiting();
    void open();
    void read(OpenFile& file, bool fromCallback);
    static unsigned queue(OpenFile& file, std::uint64_t position, unsigned bytes, bool coalescable,
                          const Qz::Ptr<iObject>& context);
    void write(OpenFile& file);
    void writeNow(OpenFile& file);
    void seek(OpenFile& file);
    void close(OpenFile& file);
    void pass();
    void endTransfer();
    void plan();
    void endEngine();
    void settleAll();
    // --- the oracle
    void check(bool holds, const char* promise);
    void fail(const std::string& what);
    void note(const std::string& what);
    void checkCounts();
    void answered(Request& request, const Qz::Ptr<iMemHolder>& data, RequestStatus status);
    void checkData(const Request& request, const Qz::Ptr<iMemHolder>& data);
    void judgeTransfer(const fake::HeldTransfer& transfer, const fake::Outcome& outcome);
    void noteDamage(const fake::HeldTransfer& transfer, bool failed, std::size_t moved);
    void forgetFile(OpenFile& file, bool exact);
    // --- helpers
    [[nodiscard]] unsigned upTo(unsigned limit) { return static_cast<unsigned>(numbers_() % (limit + 1)); }
    [[nodiscard]] bool chance(unsigned percent) { return numbers_() % 100 < percent; }
    [[nodiscard]] OpenFile* pick(bool writes);
    [[nodiscard]] std::string fresh(std::size_t size);
    [[nodiscard]] static LightweightString<wchar_t> pathOf(bool writes, unsigned number);
    Qz::Ptr<iObject> newCaller(OpenFile& file, std::uint64_t position, unsigned bytes);

    std::mt19937_64 numbers_;
    FakeOS os_;
    ScopedOS installed_;
    LogCapture logged_;
    Files files_;
    std::map<unsigned, std::string> readable_;  // contents of files that are read
    std::recursive_mutex guard_;                // guards what follows: callbacks come on other threads
    std::deque<std::unique_ptr<Request>> requests_;
    std::vector<std::string> history_;
    std::string wrong_;
    Counts counts_;
    // What was made to fail, by the path it concerns.
    struct Damage
    {
        LightweightString<wchar_t> path;
        std::uint64_t from;
        std::uint64_t to;
        bool cutShort;
    };
    std::vector<Damage> damages_;
    std::string memory_;  // that neighbouring writes share
    std::size_t memoryUsed_ = 0;
    unsigned waiting_ = 0;  // callers that wait, one inside the other
    bool ending_ = false;   // of the engine: completions come side by side
    bool idle_ = false;
    unsigned stalls_ = 0;  // in percent: how seldom the disk answers
    unsigned faulty_ = 0;  // in percent: how often it fails
    std::uint64_t engineLost_ = 0;
};
