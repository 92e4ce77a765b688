#pragma once

#include "FakeStage.h"
#include "common/SystemFaults.h"
#include "os/testing/FaultPlan.h"

#include <array>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// A failure that nobody is told of, by a rule of the system and not by mistake.
struct Silence
{
    fake::Op op;
    int error;  // errno; 0: any
    const char* why;
};

// Scenario: something that applications do, to be tried with every fault.
//
// act runs with the fault; it tells the stage who was told of what and what the run came to, and may check
// what it likes. It ends by itself, with or without the engine running.
struct Scenario
{
    const char* name;
    FakeStage::Pace pace;
    void (*prepare)(Stage&);
    void (*act)(Stage&);
    // By the engine's rules a caller may wait without limit for a transfer that never ends.
    bool survivesDrops = true;
    std::vector<Silence> silences = {};
};
// For the names that tests are reported by.
void PrintTo(const Scenario& scenario, std::ostream* stream);

// One fault, at one place, and perhaps another one beside it; or one below the platform instead.
struct FaultPoint
{
    fake::Fault fault;
    std::optional<fake::Fault> second;
    std::optional<system_faults::Fault> below = {};
    [[nodiscard]] std::string text() const;
};

// All kinds of faults that calls of op meet; first and count are left open.
[[nodiscard]] std::vector<fake::Fault> faultsOf(fake::Op op);

// Sweep: one scenario with every fault, one run for each: from the first call of each kind to the last that
// the run without faults makes, once, three times and from then on.
//
// FSYS_FAULTS=all        every point, and each beside three others; without it a share of them, evenly spread
// FSYS_FAULT_POINT=TEXT  the one point that is called so in a report
class Sweep
{
public:
    // What fails: calls of the platform, or those that the real platform itself depends on. The latter fail
    // from the preparation of a scenario on, which is when most threads and rings are made.
    enum class Level { platform, system };

    // On the fake platform.
    explicit Sweep(const Scenario& scenario);
    // On another one. share: how many points are run unless all are wanted.
    using MakeStage = std::function<std::unique_ptr<Stage>()>;
    Sweep(const Scenario& scenario, MakeStage makeStage, std::size_t share, Level level = Level::platform);
    // Prints one line; what went wrong is reported to the test.
    void run();

    // Of all sweeps of this process.
    static inline unsigned long pointsRun = 0;
    static inline unsigned long pointsMet = 0;
    static inline unsigned long failures = 0;

private:
    struct Result
    {
        Stage::Findings findings;
        std::vector<std::string> logged;
        std::size_t reported = 0;  // to the platform
        std::string leftBehind;
        bool isRealTime = false;
        unsigned error = 0;  // FsysGetLastError
        unsigned met = 0;
        std::array<unsigned, fake::opCount> metOf{};
        std::vector<unsigned> asked;
        std::array<unsigned, system_faults::callCount> askedBelow{};
        long threadsLeft = 0;
        long descriptorsLeft = 0;
        long ringsLeft = 0;  // mappings of rings
    };
    Result runOnce(const FaultPoint* point);
    static void addPairs(std::vector<FaultPoint>& points);
    [[nodiscard]] std::vector<FaultPoint> allPoints(const Result& base) const;
    [[nodiscard]] std::vector<FaultPoint> points(const Result& base) const;
    void judge(const FaultPoint& point, const Result& result, const Result& base);
    void complain(const std::string& point, const std::string& what);
    [[nodiscard]] bool maySilence(const fake::Fault& fault) const;
    [[nodiscard]] const Silence* silenceFor(const fake::Fault& fault) const;

    const Scenario& scenario_;
    const MakeStage makeStage_;
    const std::size_t share_;
    const Level level_;
    std::map<std::string, std::string> baseline_;
    unsigned run_ = 0;
    unsigned met_ = 0;
    unsigned told_ = 0;
    unsigned withoutEffect_ = 0;
    unsigned silent_ = 0;
    unsigned failed_ = 0;
};
