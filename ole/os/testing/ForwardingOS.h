#pragma once

#include "os/OS.h"
#include "os/testing/ForwardingFile.h"
#include "os/testing/ForwardingFileManager.h"
#include "os/testing/ForwardingServices.h"

// ForwardingOS: passes every call on to another operating system, real or fake. A test either overrides a
// method or puts one service of its own in place:
//
//   struct Refusing : ForwardingFileManager { using ForwardingFileManager::ForwardingFileManager;
//                                             bool deleteFile(const Path&) override { return false; } };
//   ForwardingOS os(*OS());
//   Refusing files(*os.target().getFileManager());
//   os.use(files);
//   ScopedOS installed(os);
//
// Ports made through it take a ForwardingFile for the handle inside.
// Ownership: target and services outlive this object.
class ForwardingOS : public iOperatingSystem
{
public:
    explicit ForwardingOS(iOperatingSystem& target) : target_(target) {}
    [[nodiscard]] iOperatingSystem& target() const { return target_; }

    void use(iFileManager& files) { files_ = &files; }
    void use(iThreadServices& threads) { threads_ = &threads; }
    void use(iClock& clock) { clock_ = &clock; }
    void use(iPageMemory& pages) { pages_ = &pages; }

    iFileManager* getFileManager() override { return files_ ? files_ : target_.getFileManager(); }
    iThreadServices* getThreadServices() override
    {
        return threads_ ? threads_ : target_.getThreadServices();
    }
    iClock* getClock() override { return clock_ ? clock_ : target_.getClock(); }
    iPageMemory* getPageMemory() override { return pages_ ? pages_ : target_.getPageMemory(); }
    Qz::Ptr<iCompletionPort> createCompletionPort(const char* name, const IOCompletionCommand& command,
                                                  int minThreads, int maxThreads, int concurrency,
                                                  int priority) override;

private:
    iOperatingSystem& target_;
    iFileManager* files_ = nullptr;
    iThreadServices* threads_ = nullptr;
    iClock* clock_ = nullptr;
    iPageMemory* pages_ = nullptr;
};
