#pragma once

#include "os/OS.h"
#include "os/testing/FakeCore.h"
#include "os/testing/FakeFile.h"
#include "os/testing/FakeFileManager.h"
#include "os/testing/FakePageMemory.h"
#include "os/testing/FakeThreads.h"
#include "os/testing/ScopedOS.h"

#include <memory>

// FakeOS: an operating system in memory that the test drives.
//
//   FakeOS os;                                  // virtual time, manual threads, held transfers
//   ScopedOS installed(os);                     // OS() is it from here on
//   os.files().addDrive(L"/m/");                // local, 512-byte sectors
//   os.files().addFile(L"/m/Material/a.mov", std::string(4096, 'x'));
//   ... the code under test opens the file and starts reads ...
//   EXPECT_EQ(1U, os.log().count(fake::Op::open));
//   EXPECT_EQ(512U, os.transfers().held()[0].length);
//   os.transfers().completeNext();              // also completeAt, completeShort, failNext, completeAll
//   os.faults().failNth(fake::Op::open, 2, errorFromErrno(EPERM));
//   os.clock().advance(50);                     // waits and sleeps take no real time
//   EXPECT_EQ(os.live(), fake::Live{});         // nothing left open
//   FakeOS real(FakeOS::Mode::realThreads);     // real threads and time, automatic transfers
//
// Ownership:  owns all its parts; handles and events that outlive it stay valid, ports left behind stop
//             without reporting what was held.
// Threads:    the thread that makes it drives its time.
class FakeOS : public iOperatingSystem
{
public:
    enum class Mode {
        manual,       // virtual time, threads run by the test, transfers held
        realThreads,  // real time, real threads, automatic transfers
    };

    explicit FakeOS(Mode mode = Mode::manual);
    ~FakeOS() override;
    FakeOS(const FakeOS&) = delete;
    FakeOS& operator=(const FakeOS&) = delete;

    iFileManager* getFileManager() override { return &files_; }
    iThreadServices* getThreadServices() override { return &threads_; }
    iClock* getClock() override { return &core_->clock; }
    iPageMemory* getPageMemory() override { return &pages_; }
    Qz::Ptr<iCompletionPort> createCompletionPort(const char* name, const IOCompletionCommand& command,
                                                  int minThreads, int maxThreads, int concurrency,
                                                  int priority) override;

    [[nodiscard]] FakeFileManager& files() { return files_; }
    [[nodiscard]] FakeThreads& threads() { return threads_; }
    [[nodiscard]] FakeClock& clock() { return core_->clock; }
    [[nodiscard]] FakePageMemory& pages() { return pages_; }
    [[nodiscard]] FakeTransfers& transfers() { return core_->transfers; }
    [[nodiscard]] FakePorts& ports() { return core_->ports; }
    [[nodiscard]] fake::FaultPlan& faults() { return core_->faults; }
    [[nodiscard]] fake::CallLog& log() { return core_->log; }
    [[nodiscard]] fake::Live live() const { return core_->live.now(); }

private:
    std::shared_ptr<FakeCore> core_;
    FakeFileManager files_;
    FakePageMemory pages_;
    FakeThreads threads_;  // last: threads that have not been ended end first
};
