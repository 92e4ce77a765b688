#include "Plot.h"

#include "Gnuplot.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <utility>

#include <unistd.h>

namespace {

std::optional<PlotFormat> formatOfName(const std::string& file)
{
    std::string ending = std::filesystem::path(file).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (ending == ".svg")
        return PlotFormat::svg;
    if (ending == ".png")
        return PlotFormat::png;
    return std::nullopt;
}

// gnuplot may end well and have drawn nothing, as with a full memory.
bool isWhole(const std::string& picture, PlotFormat format)
{
    if (format == PlotFormat::png)
        return picture.starts_with("\x89PNG\r\n\x1a\n") && picture.find("IEND") != std::string::npos;
    return picture.find("</svg>") != std::string::npos;
}

}  // namespace

Plot::Plot(std::string file)
    : file_(file.empty() ? file : std::filesystem::absolute(file).string()),
      format_(formatOfName(file_).value_or(PlotFormat::svg))
{}

int Plot::prepare() const
{
    if (!isWanted())
        return exitDone;
    if (const GnuplotRun trial = runGnuplot(plotBeginning(format_)); !trial.error.empty()) {
        complain("--plot cannot be drawn: %s", trial.error.c_str());
        return exitFailed;
    }
    return canWrite() ? exitDone : exitFailed;
}

bool Plot::canWrite() const
{
    iFileManager* const files = OS()->getFileManager();
    if (files->directoryExists(wide(file_))) {
        complain("--plot: %s is a folder", file_.c_str());
        return false;
    }
    // Permissions do not tell: some file systems take no new files of anybody.
    const LightweightString<wchar_t> trial = wide(file_ + ".trial" + std::to_string(getpid()));
    if (files->replaceFile(trial, "trial") && files->deleteFile(trial))
        return true;
    complain("--plot: %s cannot be written: %s", file_.c_str(), errorText(lastError()).c_str());
    return false;
}

int Plot::draw(const std::string& title, std::vector<TimedTransfer> transfers) const
{
    if (!isWanted())
        return exitDone;
    const GnuplotRun run = runGnuplot(plotScript(format_, title, std::move(transfers)));
    if (!run.error.empty() || !isWhole(run.output, format_)) {
        complain("--plot could not be drawn: %s",
                 run.error.empty() ? "gnuplot gave no picture" : run.error.c_str());
        return exitFailed;
    }
    if (OS()->getFileManager()->replaceFile(wide(file_), run.output))
        return exitDone;
    complain("--plot: %s could not be written: %s", file_.c_str(), errorText(lastError()).c_str());
    return exitFailed;
}

void addPlotOption(CLI::App& command, std::string& file)
{
    command
        .add_option(
            "--plot", file,
            "draw latency, its distribution and throughput into this file, .svg or .png; needs gnuplot")
        ->type_name("FILE")
        ->check(CLI::Validator(
            [](std::string& name) {
                return formatOfName(name) ? std::string() : name + " ends in neither .svg nor .png";
            },
            ""));
}
