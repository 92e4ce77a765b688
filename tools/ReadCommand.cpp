#include "Command.h"
#include "Hash.h"
#include "Help.h"
#include "Plot.h"
#include "Progress.h"
#include "Session.h"
#include "StreamReader.h"
#include "Verify.h"
#include "fsys/FsysEntry.h"
#include "os/LastError.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <vector>

namespace {

struct ReadArguments
{
    std::string source;
    std::uint64_t block = 1U << 20;
    unsigned depth = 8;
    bool hash = false;
    std::string plot;
};

std::string titleOf(const ReadArguments& given, const Source& source)
{
    return "fsys read: " + std::filesystem::path(given.source).filename().string() + ", " +
           readableBytes(static_cast<double>(source.size)) + " in pieces of " +
           readableBytes(static_cast<double>(given.block)) + ", " + std::to_string(given.depth) +
           " at a time";
}

// REQUIRES: sorted is not empty.
std::uint64_t percentile(const std::vector<std::uint64_t>& sorted, double part)
{
    return sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))];
}

int read(const Options& options, const ReadArguments& given)
{
    const Plot plot(given.plot);
    if (const int status = plot.prepare(); status != exitDone)
        return status;
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const Source source = sourceOf(given.source, DecodeFormat(eHighRes));
    if (source.status != exitDone)
        return source.status;
    ReadResult result =
        readThrough(source, static_cast<unsigned>(given.block), given.depth, given.hash, plot.isWanted());
    if (!result.complete) {
        complain("reading %s failed after %llu bytes: %s", utf8(source.path).c_str(),
                 static_cast<unsigned long long>(result.bytes), errorText(FsysGetLastError()).c_str());
        return exitFailed;
    }
    std::sort(result.latenciesUs.begin(), result.latenciesUs.end());
    if (result.latenciesUs.empty())
        result.latenciesUs.push_back(0);
    const double rate = result.seconds > 0 ? static_cast<double>(result.bytes) / 1e6 / result.seconds : 0;
    if (options.json) {
        Json object{{"bytes", result.bytes},
                    {"seconds", result.seconds},
                    {"mb_per_s", rate},
                    {"latency_us",
                     {{"p50", percentile(result.latenciesUs, 0.5)},
                      {"p99", percentile(result.latenciesUs, 0.99)},
                      {"max", result.latenciesUs.back()}}}};
        object["xxh128"] = given.hash ? Json(result.hash) : Json(nullptr);
        answerJson(object);
        return plot.draw(titleOf(given, source), result.transfers);
    }
    answer("%llu bytes in %.3f s, %.1f MB/s; latency %llu us (p50), %llu us (p99), %llu us (max)\n",
           static_cast<unsigned long long>(result.bytes), result.seconds, rate,
           static_cast<unsigned long long>(percentile(result.latenciesUs, 0.5)),
           static_cast<unsigned long long>(percentile(result.latenciesUs, 0.99)),
           static_cast<unsigned long long>(result.latenciesUs.back()));
    if (given.hash)
        answer("%s\n", result.hash.c_str());
    return plot.draw(titleOf(given, source), result.transfers);
}

}  // namespace

void addReadCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<ReadArguments>();
    CLI::App* const command =
        app.add_subcommand("read", "Reads all of a clip or file and tells how fast that went");
    command->add_option("COOKIE|PATH", given->source, "clip or file")->required();
    command->add_option("--block", given->block, "bytes per read, as in 4k or 1m")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 30))
        ->capture_default_str();
    command->add_option("--depth", given->depth, "reads under way at a time")
        ->check(CLI::Range(1U, 4096U))
        ->capture_default_str();
    command->add_flag("--hash", given->hash, "XXH3-128 of the bytes, as xxhsum -H2 prints it");
    addPlotOption(*command, given->plot);
    addHelp(*command, {.keys = "bytes, seconds, mb_per_s (10^6 bytes per second), latency_us (p50, p99, max: "
                               "microseconds of a read), xxh128 (32 hexadecimal digits; null without --hash)",
                       .done = "all of it was read",
                       .no = "the clip or file is unknown or offline",
                       .failed = "reading failed, or the picture of --plot cannot be made",
                       .example = "fsys read V0123456789ABCDEF00 --hash"});
    command->callback(
        [&options, &action, given] { action = [&options, given] { return read(options, *given); }; });
}
