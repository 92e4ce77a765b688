// fsys_bench: one measured run of one way of doing one piece of work, in a process of its own. Prints one
// JSON object; the exit status is 0, or 3 with the reason on standard error.

#include "Peers.h"
#include "Sinks.h"
#include "Streams.h"
#include "TestFile.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <map>

namespace {

using Peer = Json (*)(const Work&);
using PeerTable = std::map<std::string, Peer>;

const std::map<std::string, PeerTable>& subjects()
{
    static const PeerTable reads = {{"fsys", &peers::readFsys},
                                    {"media", &peers::readMedia},
                                    {"uring", &peers::readUring},
                                    {"pread", &peers::readPread},
                                    {"pread-spread", &peers::readPreadSpread},
                                    {"libuv", &peers::readLibuv},
                                    {"uring-tuned", &peers::readUringTuned},
                                    {"asio", &peers::readAsio},
                                    {"mmap", &peers::readMmap},
                                    {"posix-aio", &peers::readPosixAio},
                                    {"ffmpeg", &peers::readFfmpeg}};
    static const PeerTable writes = {{"fsys", &peers::write},
                                     {"media", &peers::write},
                                     {"pwrite", &peers::write},
                                     {"pwrite-cache", &peers::write},
                                     {"ofstream", &peers::write}};
    static const PeerTable recorders = {{"fsys", &peers::record},
                                        {"media", &peers::record},
                                        {"pwrite", &peers::record},
                                        {"ofstream", &peers::record}};
    static const PeerTable players = {
        {"fsys", &peers::play}, {"pread", &peers::play}, {"ffmpeg", &peers::play}, {"ahead", &peers::play}};
    static const std::map<std::string, PeerTable> all = {
        {"read", reads},
        {"adjacent", reads},
        {"threads", reads},
        {"write", writes},
        {"record", recorders},
        {"playback", players},
        {"latency",
         {{"fsys", &peers::latencyFsys},
          {"fsys-stages", &peers::latencyFsysStages},
          {"pread", &peers::latencyPread},
          {"relay", &peers::latencyRelay},
          {"uring", &peers::latencyUring}}},
        {"scan",
         {{"fsys", &peers::scanFsys},
          {"names", &peers::scanNames},
          {"fstatat", &peers::scanFstatat},
          {"statx2", &peers::scanStatx2}}},
        {"index",
         {{"fsys", &peers::indexFsys},
          {"fsys-add", &peers::indexFsysAdd},
          {"map", &peers::indexMap},
          {"sorted", &peers::indexSorted},
          {"unordered", &peers::indexUnordered}}},
    };
    return all;
}

bool readsFiles(const std::string& subject)
{
    return subject == "read" || subject == "adjacent" || subject == "threads" || subject == "latency" ||
           subject == "playback";
}

void addOptions(CLI::App& app, Work& work)
{
    const CLI::AsSizeValue size(false);
    app.add_option("--peer", work.peer, "way of doing it")->required();
    app.add_option("--block", work.block, "bytes of a request or a frame, as in 4k")->transform(size);
    app.add_option("--depth", work.depth, "requests under way per file")->check(CLI::Range(1U, 4096U));
    app.add_flag("--random", work.random, "positions in random order");
    app.add_option("--mode", work.mode, "unbuffered, warm or cold")
        ->transform(CLI::CheckedTransformer(std::map<std::string, Mode>{
            {"unbuffered", Mode::unbuffered}, {"warm", Mode::warm}, {"cold", Mode::cold}}));
    app.add_option("--requests", work.requests, "end after so many; 0 no limit");
    app.add_option("--seconds", work.seconds, "end after so long; 0 no limit");
    app.add_flag("--once", work.once, "end where the file ends");
    app.add_flag("--verify", work.verify, "compare what came with what was asked for");
    app.add_flag("--coalescable", work.coalescable, "the engine may merge neighbours");
    app.add_flag("--deferred", work.deferred, "and waits for them");
    app.add_option("--coalesce-length", work.coalesceLength, "bytes up to which it merges")->transform(size);
    app.add_option("--fps", work.framesPerSecond, "frames per second; recorders take one rate per file");
    app.add_option("--streams", work.streams, "streams that are played");
    app.add_option("--window", work.windowFrames, "frames that a stream runs ahead");
    app.add_option("--slow-one-in", work.slowOneIn, "every so-manieth frame's receiver is slow; 0 none");
    app.add_option("--slow-ms", work.slowMs, "for so long");
    app.add_option("--record-to", work.recordTo, "a recording beside the playback goes to this file");
    app.add_flag("--stop-at-late", work.stopAtLate, "end at the first late frame");
    app.add_option("--clips", work.clips, "clips in the index");
    app.add_option("--finds", work.finds, "finds in it");
    app.add_option("PATHS", work.paths, "files or folders");
}

Json run(const std::string& subject, Work& work)
{
    const PeerTable& table = subjects().at(subject);
    const auto peer = table.find(work.peer);
    if (peer == table.end())
        throw std::invalid_argument("the peers of " + subject + " do not include " + work.peer);
    if (subject != "index" && work.paths.empty())
        throw std::invalid_argument(subject + " needs a path");
    // The engine knows the drive of a whole path only, and reads unbuffered what it knows.
    for (std::string& path : work.paths)
        path = std::filesystem::absolute(path).string();
    if (readsFiles(subject))
        prepareCache(work);
    Json report = peer->second(work);
    report["asked"] = {{"subject", subject},  {"peer", work.peer},     {"block", work.block},
                       {"depth", work.depth}, {"random", work.random}, {"files", work.paths.size()}};
    return report;
}

}  // namespace

int main(int argc, char** argv)
try {
    CLI::App app("One measured run", "fsys_bench");
    Work work;
    std::string subject;
    std::uint64_t bytes = 0;
    app.require_subcommand(1);
    for (const auto& [name, table] : subjects()) {
        CLI::App* const command = app.add_subcommand(name);
        addOptions(*command, work);
        command->callback([&subject, name = name] { subject = name; });
    }
    CLI::App* const make = app.add_subcommand("make", "Makes a test file");
    make->add_option("--bytes", bytes)->transform(CLI::AsSizeValue(false))->required();
    make->add_option("PATHS", work.paths)->required();
    CLI11_PARSE(app, argc, argv);
    if (subject.empty()) {
        for (const std::string& path : work.paths)
            makeTestFile(path, bytes);
        return 0;
    }
    std::printf("%s\n", run(subject, work).dump().c_str());
    return 0;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "fsys_bench: %s\n", failure.what());
    return 3;
}
