#include "Sweep.h"

#include "Watchdog.h"
#include "common/HeldByProcess.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "fsys/SystemCache.h"
#include "os/LastError.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using fake::Effect;
using fake::Fault;
using fake::Op;

constexpr unsigned watchdogSeconds = 120;
constexpr double virtualLimitMs = 120'000;
constexpr std::size_t shareDriven = 700;
constexpr std::size_t shareOfThreads = 160;
constexpr unsigned failuresShown = 12;
constexpr unsigned busyTriesMax = 5;
constexpr unsigned aFewTimes = 3;

// What each of the calls below the platform fails with.
std::vector<int> errorsOf(system_faults::Call call)
{
    switch (call) {
    case system_faults::Call::startThread:
        return {EAGAIN};
    case system_faults::Call::buildRing:
        return {EPERM, ENOMEM, EMFILE, ENOSYS};
    case system_faults::Call::makeSlots:
        return {EINVAL, ENOMEM};
    case system_faults::Call::fillSlot:
        return {ENOMEM, EFAULT};
    default:
        return {EAGAIN, EPERM};
    }
}

// Longer than a ring is patient with a kernel that is short of memory.
constexpr unsigned manyTimes = 150;

void addPointsBelow(std::vector<FaultPoint>& points, system_faults::Call call, unsigned asked)
{
    // Who wakes a port has no other way than the ring, and goes on trying.
    const unsigned last = call == system_faults::Call::submit ? manyTimes : system_faults::Fault::forEver;
    for (const int error : errorsOf(call))
        for (unsigned first = 1; first <= asked; ++first)
            for (const unsigned count : {1U, aFewTimes, last})
                points.push_back({{}, {}, system_faults::Fault{call, error, first, count}});
}

bool wantsAll()
{
    const char* const wish = std::getenv("FSYS_FAULTS");
    return wish && std::strcmp(wish, "all") == 0;
}

// Failures whose consequence a run without them cannot show: somebody has to be told, whatever it came to.
bool mustBeTold(const Fault& fault)
{
    if (fault.effect == Effect::delay)
        return false;
    switch (fault.op) {
    case Op::write:
    case Op::flush:
    case Op::completion:
    case Op::replaceFile:
    case Op::createDirectory:
    case Op::createThread:
        return true;
    default:
        return false;
    }
}

// Questions have no way to fail. One that cannot be answered is answered as if there were nothing: the media
// counts as offline, the disk as none of ours, until somebody asks again. Nothing may come of it that is
// wrong.
bool isQuestion(Op op)
{
    switch (op) {
    case Op::getSize:
    case Op::isOpenedDirectly:
    case Op::getFileSize:
    case Op::fileExists:
    case Op::directoryExists:
    case Op::isWritable:
    case Op::resolvePath:
    case Op::getUNCName:
    case Op::getDriveForPath:
    case Op::listDisks:
        return true;
    default:
        return false;
    }
}

bool hasToBeTold(const FaultPoint& point, const std::array<unsigned, fake::opCount>& met)
{
    const auto counts = [&](const Fault& fault) {
        return mustBeTold(fault) && met[static_cast<std::size_t>(fault.op)] != 0;
    };
    return counts(point.fault) || (point.second && counts(*point.second));
}

}  // namespace

std::string FaultPoint::text() const
{
    std::ostringstream text;
    if (below) {
        text << nameOf(below->call) << ' ' << below->first << " fails with " << below->error
             << (below->count == 1 ? ", once" : ", " + std::to_string(below->count) + " times");
        return text.str();
    }
    text << nameOf(fault.op) << ' ' << fault.first << ' ' << nameOf(fault.effect);
    if (fault.effect == Effect::fail || fault.effect == Effect::shorten)
        text << " with " << errnoFromError(fault.code) << " after " << fault.bytes;
    if (fault.effect == Effect::delay)
        text << " by " << fault.delayMs << " ms";
    if (fault.closedHandle)
        text << ", unusable handle";
    text << (fault.count == 1 ? ", once" : fault.count == aFewTimes ? ", three times" : ", from then on");
    if (second)
        text << "; " << FaultPoint{*second, {}}.text();
    return text.str();
}

Sweep::Sweep(const Scenario& scenario)
    : Sweep(
          scenario,
          [&scenario] {
              return std::make_unique<FakeStage>(scenario.pace, virtualLimitMs,
                                                 [] { Watchdog::bark("does not end in virtual time"); });
          },
          scenario.pace == FakeStage::Pace::driven ? shareDriven : shareOfThreads)
{}

Sweep::Sweep(const Scenario& scenario, MakeStage makeStage, std::size_t share, Level level)
    : scenario_(scenario), makeStage_(std::move(makeStage)), share_(share), level_(level)
{}

Sweep::Result Sweep::runOnce(const FaultPoint* point)
{
    Result result;
    const long threadsBefore = threadsHeld();
    const long descriptorsBefore = descriptorsHeld();
    const long ringsBefore = ringMappingsHeld();
    {
        const std::unique_ptr<Stage> owned = makeStage_();
        Stage& stage = *owned;
        result.isRealTime = !stage.isRepeatable();
        stage.setBaseline(point ? &baseline_ : nullptr);
        FsysError = 1;
        system_faults::clear();
        if (point && point->below)
            system_faults::plan(*point->below);
        scenario_.prepare(stage);
        stage.faults().forgetCalls();
        if (point && !point->below)
            stage.faults().add(point->fault);
        if (point && point->second)
            stage.faults().add(*point->second);
        scenario_.act(stage);
        result.met = stage.faults().fired() + system_faults::fired();
        stage.faults().clear();
        for (unsigned call = 0; call < system_faults::callCount; ++call)
            result.askedBelow[call] = system_faults::asked(static_cast<system_faults::Call>(call));
        system_faults::clear();
        for (std::size_t op = 0; op < fake::opCount; ++op) {
            result.asked.push_back(stage.faults().asked(static_cast<Op>(op)));
            result.metOf[op] = stage.faults().fired(static_cast<Op>(op));
        }
        result.error = FsysGetLastError();
        stage.holdPolls(true);
        FsysUninitialize(Shutdown::eNormalExit);
        stage.holdPolls(false);
        DiskManager::reInit(true);  // ids begin anew, or they would be used up
        SystemCache::invalidate();
        result.findings = stage.findings();
        result.leftBehind = stage.leftBehind();
        result.reported = stage.reported();
        for (const std::string& line : stage.logged())
            result.logged.push_back(stage.plain(line));
    }
    result.threadsLeft = threadsHeld(threadsBefore) - threadsBefore;
    result.descriptorsLeft = descriptorsHeld() - descriptorsBefore;
    result.ringsLeft = ringMappingsHeld() - ringsBefore;
    return result;
}

// Trouble seldom comes alone: each fault beside three others, taken from all over the list.
void Sweep::addPairs(std::vector<FaultPoint>& points)
{
    const std::size_t count = points.size();
    for (std::size_t round = 1; round <= 3; ++round)
        for (std::size_t i = 0; i < count; ++i) {
            const Fault& other = points[(i * 7919 + round * 104729) % count].fault;
            if (other.op != points[i].fault.op)
                points.push_back({points[i].fault, other});
        }
}

std::vector<FaultPoint> Sweep::allPoints(const Result& base) const
{
    std::vector<FaultPoint> all;
    if (level_ == Level::system) {
        for (unsigned call = 0; call < system_faults::callCount; ++call)
            addPointsBelow(all, static_cast<system_faults::Call>(call), base.askedBelow[call]);
        return all;
    }
    for (std::size_t op = 0; op < fake::opCount; ++op)
        for (Fault fault : faultsOf(static_cast<Op>(op)))
            for (fault.first = 1; fault.first <= base.asked[op]; ++fault.first) {
                if (fault.effect == Effect::drop && !scenario_.survivesDrops)
                    continue;
                for (const unsigned count : {1U, aFewTimes, Fault::forEver}) {
                    fault.count = count;
                    all.push_back({fault, {}});
                }
            }
    return all;
}

std::vector<FaultPoint> Sweep::points(const Result& base) const
{
    std::vector<FaultPoint> all = allPoints(base);
    const bool hasPairs = level_ == Level::platform;
    if (hasPairs && (wantsAll() || std::getenv("FSYS_FAULT_POINT")))
        addPairs(all);
    if (const char* const wanted = std::getenv("FSYS_FAULT_POINT")) {
        std::erase_if(all, [&](const FaultPoint& point) { return point.text() != wanted; });
        return all;
    }
    if (wantsAll() || all.size() <= share_)
        return all;
    std::vector<FaultPoint> some;
    for (std::size_t i = 0; i < share_; ++i)
        some.push_back(all[i * all.size() / share_]);
    return some;
}

void Sweep::complain(const std::string& point, const std::string& what)
{
    if (++failed_ <= failuresShown)
        ADD_FAILURE() << scenario_.name << ", " << point << ": " << what;
}

const Silence* Sweep::silenceFor(const Fault& fault) const
{
    for (const Silence& silence : scenario_.silences)
        if (silence.op == fault.op && (silence.error == 0 || silence.error == errnoFromError(fault.code)))
            return &silence;
    return nullptr;
}

bool Sweep::maySilence(const Fault& fault) const { return isQuestion(fault.op) || silenceFor(fault); }

void Sweep::judge(const FaultPoint& point, const Result& result, const Result& base)
{
    const std::string name = point.text();
    for (const std::string& wrong : result.findings.wrong)
        complain(name, wrong);
    if (!result.leftBehind.empty())
        complain(name, "left behind: " + result.leftBehind);
    if (result.threadsLeft > 0 || result.descriptorsLeft > 0 || result.ringsLeft > 0)
        complain(name, std::to_string(result.threadsLeft) + " threads, " +
                           std::to_string(result.descriptorsLeft) + " descriptors and " +
                           std::to_string(result.ringsLeft) + " mappings of rings more than before");
    if (result.met == 0)
        return;
    ++met_;
    const bool told = !result.findings.told.empty() || result.reported > base.reported ||
                      result.error != base.error ||
                      std::any_of(result.logged.begin(), result.logged.end(), [&](const std::string& line) {
                          return std::find(base.logged.begin(), base.logged.end(), line) == base.logged.end();
                      });
    if (told)
        ++told_;
    else if (result.findings.outcome == base.findings.outcome && !hasToBeTold(point, result.metOf))
        ++withoutEffect_;
    else if (point.below)
        complain(name, "nobody is told; came to " + result.findings.outcome);
    else if (maySilence(point.fault) || (point.second && maySilence(*point.second)))
        ++silent_;
    else
        complain(name, "nobody is told; came to " + result.findings.outcome);
}

void Sweep::run()
{
    const auto started = std::chrono::steady_clock::now();
    Watchdog watchdog(watchdogSeconds);
    watchdog.at(std::string(scenario_.name) + " without a fault");
    static_cast<void>(runOnce(nullptr));  // what is made once per process is there from here on
    Result base = runOnce(nullptr);
    // Where real time counts, a machine that is busy with other things may be too slow for a limit.
    for (unsigned tries = 0; base.isRealTime && !base.findings.told.empty() && tries < busyTriesMax; ++tries)
        base = runOnce(nullptr);
    for (const std::string& wrong : base.findings.wrong)
        complain("without a fault", wrong);
    for (const std::string& told : base.findings.told)
        complain("without a fault", told);
    judge({}, base, base);
    baseline_ = base.findings.kept;
    for (const FaultPoint& point : points(base)) {
        watchdog.at(std::string(scenario_.name) + ", " + point.text());
        judge(point, runOnce(&point), base);
        ++run_;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::printf("fault points: %-28s %6u run, %6u met, %6u told, %5u without effect, %4u silent by rule, "
                "%u failures, %.1f s\n",
                scenario_.name, run_, met_, told_, withoutEffect_, silent_, failed_, seconds);
    std::fflush(stdout);
    EXPECT_GT(met_, 0U) << "no fault was met";
    pointsRun += run_;
    pointsMet += met_;
    failures += failed_;
}
