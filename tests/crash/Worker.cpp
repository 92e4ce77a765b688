// What a crash interrupts: saves small files, renames locations or records clips, over and over, and says
// when each step begins and has ended. Whoever started it ends it, by a signal or by the loss of its disk,
// and compares what is left with what was said.
//
//   crash_worker save FOLDER WAY FIRST        small files; WAY: product, rename, naive
//   crash_worker locations SPACE FOLDER FIRST the list of locations and the names of locations
//   crash_worker record SPACE FOLDER FIRST    clips in a location
//   crash_worker verify FILE...               tells of files that "record" made what is right in them
//
// With CRASH_COUNT set it ends by itself after so many steps. With CRASH_WAIT set it waits for a line on
// standard input after each line that it prints.

#include "Pattern.h"
#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "media/MediaWriter.h"
#include "support/Preferences.h"
#include "support/TextFile.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// What the worker says goes there. The libraries print on standard output, which is switched off.
int voice = STDOUT_FILENO;

void keepVoiceApart()
{
    voice = ::dup(STDOUT_FILENO);
    const int nowhere = ::open("/dev/null", O_WRONLY);
    ::dup2(nowhere, STDOUT_FILENO);
    ::close(nowhere);
}

LightweightString<wchar_t> wide(const std::string& text) { return fromUTF8(text); }

__attribute__((format(printf, 1, 2))) void say(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    // One call of the kernel: a death leaves a whole line or none.
    ::vdprintf(voice, format, arguments);
    va_end(arguments);
    char line[16];
    if (std::getenv("CRASH_WAIT") && !std::fgets(line, sizeof line, stdin))
        std::_Exit(0);
}

[[noreturn]] void stop(const std::string& why)
{
    std::fprintf(stderr, "crash_worker: %s\n", why.c_str());
    std::_Exit(3);
}

// Runs step(FIRST), step(FIRST + 1), ... until CRASH_COUNT steps are done.
int repeat(const char* first, const std::function<void(std::uint64_t)>& step)
{
    const char* const text = std::getenv("CRASH_COUNT");
    const std::uint64_t count = text ? std::strtoull(text, nullptr, 10) : UINT64_MAX;
    const std::uint64_t start = std::strtoull(first, nullptr, 10);
    say("ready\n");
    for (std::uint64_t i = 0; i < count; ++i)
        step(start + i);
    return 0;
}

// --- small files

// Of different lengths, and each line names its version: what is cut off, mixed or empty shows.
std::vector<std::string> linesOf(std::uint64_t version)
{
    std::vector<std::string> lines;
    const std::uint64_t count = 1 + version * 37 % 400;
    for (std::uint64_t i = 0; i < count; ++i)
        lines.push_back("version " + std::to_string(version) + " line " + std::to_string(i));
    lines.push_back("end " + std::to_string(version));
    return lines;
}

void saveByProduct(const fs::path& path, std::uint64_t version)
{
    TextFile file(wide(path.string()), false);
    for (const std::string& line : linesOf(version))
        file.appendLine(line.c_str());
    if (!file.save(1))
        stop("the save failed");
}

// Deliberate: the two ways that lose data. What finds nothing wrong with these finds nothing at all.
void saveInPlace(const fs::path& path, std::uint64_t version)
{
    std::ofstream file(path, std::ios::trunc);
    for (const std::string& line : linesOf(version))
        file << line << '\n';
}

void saveByRename(const fs::path& path, std::uint64_t version)
{
    const fs::path temporary = path.string() + ".tmp";
    saveInPlace(temporary, version);
    fs::rename(temporary, path);
}

int save(const fs::path& folder, std::string_view way, const char* first)
{
    const auto put = way == "product" ? saveByProduct : way == "rename" ? saveByRename : saveInPlace;
    return repeat(first, [&](std::uint64_t version) {
        say("begin list %llu\n", static_cast<unsigned long long>(version));
        put(folder / "list.txt", version);
        say("end list %llu\n", static_cast<unsigned long long>(version));
        if (way == "product") {
            const std::string value(1 + version * 101 % 3000, static_cast<char>('a' + version % 26));
            say("begin preference %llu\n", static_cast<unsigned long long>(version));
            if (!prefs().setPreference("value", wide(std::to_string(version) + " " + value)))
                stop("the preference was not saved");
            say("end preference %llu\n", static_cast<unsigned long long>(version));
        }
        if (version % 5 == 0) {
            say("begin new %llu\n", static_cast<unsigned long long>(version));
            put(folder / ("new-" + std::to_string(version) + ".txt"), version);
            say("end new %llu\n", static_cast<unsigned long long>(version));
        }
    });
}

// --- locations

std::string rootOf(const std::string& folder, const char* name)
{
    const std::string root = folder + "/" + name;
    std::error_code error;
    fs::create_directories(root, error);
    if (error)
        stop(root + ": " + error.message());
    return root + "/";
}

// One location keeps changing its name; the other comes and goes.
int changeLocations(const std::string& space, const std::string& folder, const char* first)
{
    DiskManager::init(wide(space), true);
    const LightweightString<wchar_t> named = wide(rootOf(folder, "named"));
    const LightweightString<wchar_t> guest = wide(rootOf(folder, "guest"));
    if (!DiskManager::getVolume(named) && !DiskManager::addMediaLocation(named))
        stop("the location could not be added");
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(named);
    if (!drive || !drive->prepareForMedia())
        stop("the location cannot be used");
    return repeat(first, [&](std::uint64_t version) {
        const std::string name =
            "Raid " + std::to_string(version) + " " + std::string(1 + version * 31 % 200, 'x');
        say("begin name %s\n", name.c_str());
        if (!DiskManager::renameMediaLocation(drive->getId(), wide(name)))
            stop("the location was not renamed");
        say("end name %s\n", name.c_str());
        const bool add = !DiskManager::getVolume(guest);
        say("begin guest %d\n", add ? 1 : 0);
        if (!(add ? DiskManager::addMediaLocation(guest) : DiskManager::removeMediaLocation(guest)))
            stop("the list of locations was not changed");
        say("end guest %d\n", add ? 1 : 0);
    });
}

// --- recordings

// Frames of all lengths, recordings from some bytes to some blocks.
std::size_t frameBytes(std::uint64_t number, std::uint64_t frame)
{
    constexpr std::size_t lengths[] = {9, 511, 4096, 30'000, 250'000, 700'001};
    return lengths[(number * 7 + frame * 5) % std::size(lengths)];
}

void recordClip(const Qz::Ptr<MediaDrive>& drive, std::uint64_t number)
{
    const Cookie clip = Cookie::makeNew();
    const std::string name = clip.asString(true).str();
    const auto id = static_cast<unsigned long long>(number);
    say("begin clip %s %llu\n", name.c_str(), id);
    MediaWriter writer(clip, drive->getFsysLocation(clip, L"raw"));
    std::uint64_t position = 0;
    const std::uint64_t frames = 1 + number * 3 % 11;
    for (std::uint64_t frame = 0; frame < frames; ++frame) {
        std::vector<std::byte> bytes(frameBytes(number, frame));
        fillPattern(number, position, bytes);
        if (!writer.write(bytes))
            stop(writer.error().text);
        position += bytes.size();
        if (number % 3 == 0 && frame == frames / 2) {
            if (!writer.flush())
                stop(writer.error().text);
            say("flushed clip %s %llu\n", name.c_str(), static_cast<unsigned long long>(position));
        }
    }
    const MediaRecording recorded = writer.finish();
    if (!recorded.complete || recorded.bytes != position)
        stop(recorded.error.text);
    say("end clip %s %llu\n", name.c_str(), static_cast<unsigned long long>(position));
}

// Now and then a clip goes to a location that has just been made.
int recordClips(const std::string& space, const std::string& folder, const char* first)
{
    FsysInitialize();
    DiskManager::init(wide(space), true);
    Qz::Ptr<MediaDrive> drive;
    const int result = repeat(first, [&](std::uint64_t number) {
        const std::string name = "location" + std::to_string(number / 8);
        const LightweightString<wchar_t> root = wide(rootOf(folder, name.c_str()));
        if (!drive || drive->getRootLocation() != root) {
            DiskManager::addMediaLocation(root);
            drive = DiskManager::getVolume(root);
        }
        if (!drive || !drive->prepareForMedia())
            stop("the location cannot be used");
        recordClip(drive, number);
    });
    Shutdown::run(Shutdown::eNormalExit);
    return result;
}

// "NUMBER SIZE GOOD NAME" of each file: GOOD bytes from its start are those of the file's number.
int verify(int count, char** paths)
{
    for (int i = 0; i < count; ++i) {
        std::ifstream stream(paths[i], std::ios::binary);
        std::vector<char> all(fs::file_size(paths[i]));
        stream.read(all.data(), static_cast<std::streamsize>(all.size()));
        all.resize(static_cast<std::size_t>(std::max<std::streamsize>(stream.gcount(), 0)));
        std::uint64_t number = 0;
        std::memcpy(&number, all.data(), std::min(sizeof number, all.size()));
        const std::size_t good = matchingBytes(number, 0, std::as_bytes(std::span(all)));
        std::printf("%llu %zu %zu %s\n", static_cast<unsigned long long>(number), all.size(), good, paths[i]);
    }
    return 0;
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    const std::string_view mode = argumentCount > 1 ? arguments[1] : "";
    if (mode == "verify")
        return verify(argumentCount - 2, arguments + 2);
    keepVoiceApart();
    if (argumentCount == 5 && mode == "save")
        return save(arguments[2], arguments[3], arguments[4]);
    if (argumentCount == 5 && mode == "locations")
        return changeLocations(arguments[2], arguments[3], arguments[4]);
    if (argumentCount == 5 && mode == "record")
        return recordClips(arguments[2], arguments[3], arguments[4]);
    std::fprintf(stderr, "usage: crash_worker save|locations|record|verify ...\n");
    return 2;
}
