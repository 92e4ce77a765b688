#pragma once

#include "Machine.h"
#include "Stage.h"
#include "fsys/EngineFixture.h"

#include <functional>
#include <memory>

// All that a capture has, of all kinds.
[[nodiscard]] std::vector<std::string> linesOf(const LogCapture& capture);

// FakeStage: a stage on the fake platform, below "/m".
//
// driven:     time is virtual, and the driving thread plays polls and disk (Machine). A run is the same each
//             time.
// threads:    real threads; time runs fifty times as fast as on the wall.
class FakeStage : public Stage
{
public:
    enum class Pace { driven, threads };

    FakeStage(Pace pace, double limitMs, std::function<void()> onHang);
    ~FakeStage() override;

    [[nodiscard]] Path os(const std::string& path) const override;
    void put(const std::string& path, const std::string& contents) override;
    void putFolder(const std::string& path) override;
    [[nodiscard]] std::optional<std::string> get(const std::string& path) const override;
    [[nodiscard]] fake::FaultPlan& faults() override { return os_.faults(); }
    void holdPolls(bool held) override;
    void pass(unsigned ms) override { os_.clock().sleep(ms); }

    [[nodiscard]] std::vector<std::string> logged() const override;
    [[nodiscard]] std::size_t reported() const override;
    [[nodiscard]] std::string leftBehind() const override;

private:
    FakeOS os_;
    ScopedOS installed_;
    LogCapture logged_;
    std::unique_ptr<Machine> machine_;
};
