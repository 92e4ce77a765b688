#include "LinuxStage.h"

#include "FakeStage.h"

#include <filesystem>

namespace {

constexpr unsigned speed = 50;

}  // namespace

LinuxStage::LinuxStage() : os_(*OS(), speed), installed_(os_)
{
    folder_.folder("Material");
    folder_.folder("Sound");
}

void LinuxStage::put(const std::string& path, const std::string& contents)
{
    std::filesystem::create_directories(std::filesystem::path(folder_ / path).parent_path());
    folder_.file(path, contents);
}

std::optional<std::string> LinuxStage::get(const std::string& path) const
{
    const std::string name = folder_ / path;
    return std::filesystem::is_regular_file(name) ? std::optional(contentsOf(name)) : std::nullopt;
}

std::vector<std::string> LinuxStage::logged() const { return linesOf(logged_); }
