#include "FakeStage.h"

#include "Qz/Utf8.h"

#include <sstream>
#include <utility>

namespace {

constexpr double threadsSpeed = 50;

}  // namespace

std::vector<std::string> linesOf(const LogCapture& capture)
{
    std::vector<std::string> lines = capture.logs();
    for (const std::string& line : capture.both())
        lines.push_back(line);
    for (const auto& [line, level] : capture.splats())
        lines.push_back(line);
    return lines;
}

FakeStage::FakeStage(Pace pace, double limitMs, std::function<void()> onHang) : installed_(os_)
{
    os_.files().addDrive(L"/m/");
    os_.files().addFolder(L"/m/Material");
    os_.files().addFolder(L"/m/Sound");
    if (pace == Pace::driven) {
        machine_ = std::make_unique<Machine>(os_, limitMs, std::move(onHang));
    } else {
        os_.clock().useRealTime(threadsSpeed);
        os_.threads().useRealThreads();
        os_.transfers().setAutomatic(true);
    }
}

FakeStage::~FakeStage() = default;

Stage::Path FakeStage::os(const std::string& path) const { return fromUTF8("/m/" + path); }

void FakeStage::put(const std::string& path, const std::string& contents)
{
    os_.files().addFile(os(path), contents);
}

void FakeStage::putFolder(const std::string& path) { os_.files().addFolder(os(path)); }

std::optional<std::string> FakeStage::get(const std::string& path) const
{
    auto& files = const_cast<FakeOS&>(os_).files();
    return files.has(os(path)) ? std::optional(files.contents(os(path))) : std::nullopt;
}

void FakeStage::holdPolls(bool held)
{
    if (machine_)
        machine_->holdPolls(held);
}

std::vector<std::string> FakeStage::logged() const { return linesOf(logged_); }

std::size_t FakeStage::reported() const { return const_cast<FakeOS&>(os_).files().reportedErrors().size(); }

std::string FakeStage::leftBehind() const
{
    const fake::Live live = os_.live();
    if (live == fake::Live{})
        return {};
    std::ostringstream left;
    left << "files " << live.files << ", contexts " << live.contexts << ", events " << live.events
         << ", pages " << live.pages << ", ports " << live.ports << ", threads " << live.threads;
    return left.str();
}
