// Hours of an editing day: readers, recorders, scans, location changes and listeners at random, every byte
// checked, nothing left behind.
//
//   soak --seconds N [--seed S] [--no-memory] PLACE PLACE...
//
// A place is a folder on a file system of its own. Works in spells of some seconds; between two of them all
// threads rest and what the process holds is looked at. --no-memory: memory is not judged, for sanitizers,
// which keep what was freed. The exit status is 0 when nothing was wrong.

#include "Control.h"
#include "Footprint.h"
#include "Pattern.h"
#include "Probes.h"
#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "Studio.h"
#include "fsys/FsysEntry.h"
#include "support/Log.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <thread>

namespace fs = std::filesystem;

namespace {

constexpr unsigned readers = 8;
constexpr unsigned recorders = 2;

struct Arguments
{
    double seconds = 60;
    std::uint64_t seed = std::random_device()();
    bool judgesMemory = true;
    std::vector<std::string> places;
};

bool parse(int count, char** texts, Arguments& arguments)
{
    for (int i = 1; i < count; ++i) {
        const std::string_view text = texts[i];
        if (text == "--seconds" && i + 1 < count)
            arguments.seconds = std::strtod(texts[++i], nullptr);
        else if (text == "--seed" && i + 1 < count)
            arguments.seed = std::strtoull(texts[++i], nullptr, 10);
        else if (text == "--no-memory")
            arguments.judgesMemory = false;
        else if (text.starts_with("-"))
            return false;
        else
            arguments.places.emplace_back(text);
    }
    return arguments.places.size() >= 2 && arguments.seconds > 0;
}

// What the system itself says should not happen.
class Splats : public iLogSink
{
public:
    explicit Splats(Report& report) : report_(report) {}
    void log(const char* /*text*/) override {}
    void logBoth(const char* /*text*/) override {}
    void splat(const char* text, int /*level*/) override { report_.wrong(std::string("reported: ") + text); }
    void debugText(int /*column*/, int /*row*/, const char* /*text*/) override {}

private:
    Report& report_;
};

// All clips once more, without the library.
void verifyOnDisk(Studio& studio)
{
    for (const ClipPtr& clip : studio.catalog.all()) {
        const std::string path = toUTF8(clip->path).str();
        std::ifstream stream(path, std::ios::binary);
        std::vector<char> all(static_cast<std::size_t>(clip->bytes) + 1);
        stream.read(all.data(), static_cast<std::streamsize>(all.size()));
        const auto there = std::as_bytes(std::span(all).first(static_cast<std::size_t>(stream.gcount())));
        if (there.size() != clip->bytes || matchingBytes(clip->number, 0, there) != clip->bytes)
            studio.report.wrong("on the disk, wrong: " + path);
    }
    for (const std::string& place : studio.places)
        for (const auto& entry : fs::recursive_directory_iterator(place + "/location"))
            if (entry.path().extension() == ".partial" || entry.path().extension() == ".tmp")
                studio.report.wrong("left behind: " + entry.path().string());
}

void print(const Report& report, double seconds, const Footprint::Sample& held)
{
    std::printf(
        "%5.0f s  %llu reads %.0f MB, %llu callbacks (worst %.0f ms), %llu recordings %.0f MB, "
        "%llu scans, %llu location changes, %llu messages; %llu kB, %u descriptors, %u threads; "
        "%u wrong\n",
        seconds, static_cast<unsigned long long>(report.reads), static_cast<double>(report.bytesRead) / 1e6,
        static_cast<unsigned long long>(report.callbacks), report.worstMs(),
        static_cast<unsigned long long>(report.recordings), static_cast<double>(report.bytesRecorded) / 1e6,
        static_cast<unsigned long long>(report.scans),
        static_cast<unsigned long long>(report.locationChanges),
        static_cast<unsigned long long>(report.messages), static_cast<unsigned long long>(held.residentKb),
        held.descriptors, held.threads, report.wrongs());
    std::fflush(stdout);
}

void soak(Studio& studio, const Arguments& arguments)
{
    const double spellSeconds = std::clamp(arguments.seconds / 10, 2.0, 15.0);
    Control control(studio);
    control.begin();
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < readers; ++i)
        threads.emplace_back([&studio, i] { readClips(studio, i); });
    for (unsigned i = 0; i < recorders; ++i)
        threads.emplace_back([&studio, i] { recordClips(studio, i); });
    Footprint footprint;
    const double started = clockMs();
    std::mt19937_64 random(studio.seed + 1);
    while (clockMs() < started + arguments.seconds * 1000) {
        for (const double end = clockMs() + spellSeconds * 1000; clockMs() < end;) {
            control.step();
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 200));
        }
        studio.rests.begin();
        control.checkAtRest();
        footprint.take();
        print(studio.report, (clockMs() - started) / 1000, footprint.last());
        studio.rests.end();
    }
    studio.rests.stop();
    threads.clear();
    verifyOnDisk(studio);
    footprint.judge(studio.report, arguments.judgesMemory);
}

}  // namespace

int main(int argumentCount, char** texts)
{
    Arguments arguments;
    if (!parse(argumentCount, texts, arguments)) {
        std::fprintf(stderr, "usage: soak --seconds N [--seed S] [--no-memory] PLACE PLACE...\n");
        return 2;
    }
    std::printf("seed %llu\n", static_cast<unsigned long long>(arguments.seed));
    Probes probes(arguments.places);
    Studio studio(arguments.seed, readers + recorders, probes);
    studio.places = arguments.places;
    studio.space = arguments.places.front() + "/space";
    fs::create_directories(studio.space);
    Splats splats(studio.report);
    setLogSink(&splats);
    FsysInitialize();
    soak(studio, arguments);
    Shutdown::run(Shutdown::eNormalExit);
    setLogSink(nullptr);
    const Report& report = studio.report;
    std::printf(
        "soak: %.0f s, %u wrong, %llu late callbacks of %llu (worst %.0f ms; of the machine %.0f ms), "
        "%llu cancelled, %llu abandoned, %llu removed, %llu opened by path during a scan\n",
        arguments.seconds, report.wrongs(), static_cast<unsigned long long>(report.late),
        static_cast<unsigned long long>(report.callbacks), report.worstMs(), probes.worst(),
        static_cast<unsigned long long>(report.cancelled), static_cast<unsigned long long>(report.abandoned),
        static_cast<unsigned long long>(report.removals),
        static_cast<unsigned long long>(report.notYetIndexed));
    return report.wrongs() == 0 ? 0 : 1;
}
