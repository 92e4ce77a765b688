#pragma once

#include "Stage.h"
#include "common/TemporaryFolder.h"
#include "fsys/EngineFixture.h"
#include "os/testing/FaultyOS.h"

// LinuxStage: a stage on the real platform, in a temporary folder. Waits of the engine take a fiftieth of
// their time.
class LinuxStage : public Stage
{
public:
    LinuxStage();

    [[nodiscard]] Path os(const std::string& path) const override { return wide(folder_ / path); }
    void put(const std::string& path, const std::string& contents) override;
    void putFolder(const std::string& path) override { folder_.folder(path); }
    [[nodiscard]] std::optional<std::string> get(const std::string& path) const override;
    [[nodiscard]] fake::FaultPlan& faults() override { return os_.faults(); }
    void pass(unsigned ms) override { os_.getClock()->sleep(ms); }
    [[nodiscard]] std::vector<std::string> logged() const override;
    [[nodiscard]] std::size_t reported() const override { return os_.reported(); }
    [[nodiscard]] bool isRepeatable() const override { return false; }

private:
    TemporaryFolder folder_;
    FaultyOS os_;
    ScopedOS installed_;
    LogCapture logged_;
};
