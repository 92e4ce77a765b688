// stream: records and plays stamped bytes at a pace, through the library, while somebody does harm to the
// servers below; and asks what a control thread asks, with a stopwatch. One JSON object is the answer.
//
//   stream record FILE SECONDS MB_PER_SECOND [STALL_LIMIT_MS]
//   stream play FILE SECONDS MB_PER_SECOND [STALL_LIMIT_MS]   again and again from its start
//   stream verify FILE                                        without the library
//   stream share NETWORK_NAME                                 as the root of a location
//   stream watch SECONDS FOLDER...                            one round each tenth of a second

#include "Qz/Utf8.h"
#include "fsys/FsysEntry.h"
#include "fsys/MediaDrive.h"
#include "media/MediaReader.h"
#include "media/MediaWriter.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;

constexpr std::size_t pieceBytes = std::size_t{256} << 10;
constexpr double stallMs = 1000;

// Every word tells where it belongs.
std::uint64_t wordAt(std::uint64_t index) { return (index + 1) * 0x9E3779B97F4A7C15ULL; }

std::vector<std::byte> pieceAt(std::uint64_t offset)
{
    std::vector<std::byte> piece(pieceBytes);
    for (std::size_t at = 0; at < pieceBytes; at += sizeof(std::uint64_t)) {
        const std::uint64_t word = wordAt((offset + at) / sizeof(std::uint64_t));
        std::memcpy(piece.data() + at, &word, sizeof word);
    }
    return piece;
}

std::uint64_t wrongWords(std::uint64_t offset, const std::byte* bytes, std::size_t count)
{
    std::uint64_t wrong = 0;
    for (std::size_t at = 0; at + sizeof(std::uint64_t) <= count; at += sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes + at, sizeof word);
        wrong += word == wordAt((offset + at) / sizeof word) ? 0U : 1U;
    }
    return wrong;
}

double msSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// When the next piece is due, and what has been slow.
class Pace
{
public:
    Pace(double seconds, double megabytesPerSecond)
        : end_(start_ + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))),
          interval_(std::chrono::duration_cast<Clock::duration>(
              std::chrono::duration<double>(static_cast<double>(pieceBytes) / (megabytesPerSecond * 1e6))))
    {}
    bool next()
    {
        std::this_thread::sleep_until(due_);
        due_ = std::max(due_ + interval_, Clock::now() - interval_);
        return Clock::now() < end_;
    }
    void took(double ms)
    {
        worstMs_ = std::max(worstMs_, ms);
        stalls_ += ms >= stallMs ? 1U : 0U;
    }
    void tell(Json& answer) const
    {
        answer["worst_ms"] = worstMs_;
        answer["stalls"] = stalls_;
    }

private:
    const Clock::time_point start_ = Clock::now();
    const Clock::time_point end_;
    const Clock::duration interval_;
    Clock::time_point due_ = start_;
    double worstMs_ = 0;
    unsigned stalls_ = 0;
};

unsigned stallLimitOf(int count, char** words)
{
    return count > 5 ? static_cast<unsigned>(std::atoi(words[5])) : 60'000;
}

Json record(int count, char** words)
{
    MediaWriterOptions options;
    options.stallLimitMs = stallLimitOf(count, words);
    Pace pace(std::atof(words[3]), std::atof(words[4]));
    MediaWriter writer(fromUTF8(words[2]), options);
    std::uint64_t offset = 0;
    while (pace.next()) {
        const auto piece = pieceAt(offset);
        const Clock::time_point before = Clock::now();
        const bool taken = writer.write(piece);
        pace.took(msSince(before));
        if (!taken)
            break;
        offset += piece.size();
    }
    const Clock::time_point before = Clock::now();
    const MediaRecording recorded = writer.finish();
    Json answer{{"accepted", offset},           {"complete", recorded.complete},
                {"bytes", recorded.bytes},      {"path", toUTF8(recorded.path).str()},
                {"error", recorded.error.text}, {"finish_ms", msSince(before)}};
    pace.tell(answer);
    return answer;
}

Json wordsOf(std::uint64_t offset, const std::vector<std::byte>& bytes, std::size_t count)
{
    std::uint64_t zeros = 0;
    std::uint64_t first = count;
    std::uint64_t last = 0;
    for (std::size_t at = 0; at + sizeof(std::uint64_t) <= count; at += sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.data() + at, sizeof word);
        if (word == wordAt((offset + at) / sizeof word))
            continue;
        zeros += word == 0 ? 1U : 0U;
        first = std::min<std::uint64_t>(first, at);
        last = at;
    }
    return {{"wrong", wrongWords(offset, bytes.data(), count)},
            {"zeros", zeros},
            {"first", first},
            {"last", last},
            {"of", count}};
}

// What there is to know of a piece that was read wrongly: what is wrong with it, and what a read without the
// library finds there now.
Json misreadAt(std::uint64_t offset, const std::vector<std::byte>& bytes, std::size_t count, const char* path)
{
    std::vector<std::byte> plain(pieceBytes);
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(reinterpret_cast<char*>(plain.data()), static_cast<std::streamsize>(plain.size()));
    return {{"offset", offset},
            {"here", wordsOf(offset, bytes, count)},
            {"without_the_library", wordsOf(offset, plain, static_cast<std::size_t>(file.gcount()))}};
}

Json play(int count, char** words)
{
    Pace pace(std::atof(words[3]), std::atof(words[4]));
    MediaReader reader(fromUTF8(words[2]));
    if (!reader.isOpen())
        return {{"open", false}, {"error", reader.openError().text}};
    reader.setStallLimit(stallLimitOf(count, words));
    reader.setReadAhead(2 * pieceBytes);
    const std::uint64_t size = reader.size();
    std::vector<std::byte> memory(pieceBytes);
    std::uint64_t offset = 0;
    std::uint64_t read = 0;
    std::uint64_t wrong = 0;
    std::uint64_t failures = 0;
    std::uint64_t readsAfterFailure = 0;
    std::map<std::string, std::uint64_t> errors;
    Json misread;
    while (pace.next() && size >= pieceBytes) {
        const Clock::time_point before = Clock::now();
        MediaError error;
        const std::size_t got = reader.read(offset, memory, &error);
        pace.took(msSince(before));
        const std::uint64_t wrongHere = wrongWords(offset, memory.data(), got);
        if (wrongHere > 0)
            misread.push_back(misreadAt(offset, memory, got, words[2]));
        wrong += wrongHere;
        read += got;
        if (error) {
            ++failures;
            ++errors[error.text];
        } else {
            readsAfterFailure += failures != 0 ? 1U : 0U;
            offset = offset + 2 * pieceBytes <= size ? offset + pieceBytes : 0;
        }
    }
    Json answer{{"open", true},         {"read", read},     {"wrong", wrong},
                {"failures", failures}, {"errors", errors}, {"reads_after_failure", readsAfterFailure}};
    if (wrong > 0)
        answer["misread"] = misread;
    pace.tell(answer);
    return answer;
}

Json verify(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<char> memory(pieceBytes);
    std::uint64_t offset = 0;
    std::uint64_t wrong = 0;
    while (file.read(memory.data(), static_cast<std::streamsize>(memory.size())), file.gcount() > 0) {
        const auto got = static_cast<std::size_t>(file.gcount());
        wrong += wrongWords(offset, reinterpret_cast<const std::byte*>(memory.data()), got);
        offset += got;
    }
    return {{"bytes", offset}, {"wrong", wrong}};
}

Json share(const char* networkName)
{
    const MediaDrive drive(DriveId('1'), fromUTF8(networkName), iDiskDrive::eNetwork);
    LightweightString<wchar_t> preferred;
    LightweightString<wchar_t> plain;
    drive.getLocalName(preferred, true);
    drive.getLocalName(plain, false);
    return {{"preferred", toUTF8(preferred).str()}, {"plain", toUTF8(plain).str()}};
}

struct Watched
{
    double worstMs = 0;
    unsigned rounds = 0;
    unsigned online = 0;
    bool lastOnline = false;
    std::map<std::string, unsigned> codes;
};

// One round of what a control thread wants to know of a location.
void ask(const std::string& folder, Watched& watched)
{
    iFileManager& files = *OS()->getFileManager();
    const auto path = fromUTF8(folder.c_str());
    const Clock::time_point before = Clock::now();
    const bool online = files.isWritable(path) && files.directoryExists(path);
    if (!online)
        ++watched.codes[errorText(lastError()).str()];
    if (const Qz::Ptr<iDiskDrive> drive = files.getDriveForPath(path))
        static_cast<void>(drive->getFreeBytes() + drive->getTotalBytes());
    static_cast<void>(files.getFileSize(path + L"/clip"));
    watched.worstMs = std::max(watched.worstMs, msSince(before));
    ++watched.rounds;
    watched.online += online ? 1U : 0U;
    watched.lastOnline = online;
}

Json watch(int count, char** words)
{
    std::vector<std::pair<std::string, Watched>> folders;
    for (int i = 3; i < count; ++i)
        folders.emplace_back(words[i], Watched());
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(std::atof(words[2])));
    while (Clock::now() < end) {
        for (auto& [folder, watched] : folders)
            ask(folder, watched);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    Json answer;
    for (const auto& [folder, watched] : folders)
        answer[folder] = {
            {"worst_ms", watched.worstMs},
            {"rounds", watched.rounds},
            {"online", watched.online},
            {"online_at_end", watched.lastOnline},
            {"type", OS()->getFileManager()->getDriveForPath(fromUTF8(folder.c_str()))
                         ? static_cast<unsigned>(
                               OS()->getFileManager()->getDriveForPath(fromUTF8(folder.c_str()))->getType())
                         : 0U},
            {"codes", watched.codes}};
    return answer;
}

Json run(const std::string& command, int count, char** words)
{
    if (command == "verify" && count == 3)
        return verify(words[2]);
    if (command == "share" && count == 3)
        return share(words[2]);
    if (command == "watch" && count >= 4)
        return watch(count, words);
    if (count < 5)
        return {};
    FsysInitialize();
    Json answer = command == "record" ? record(count, words)
                  : command == "play" ? play(count, words)
                                      : Json();
    const Clock::time_point before = Clock::now();
    FsysUninitialize(Shutdown::eNormalExit);
    answer["end_ms"] = msSince(before);
    return answer;
}

}  // namespace

int main(int count, char** words)
{
    const Json answer = count > 1 ? run(words[1], count, words) : Json();
    if (answer.is_null()) {
        std::fprintf(stderr, "usage: stream record|play|verify|share|watch ...\n");
        return 2;
    }
    std::printf("%s\n", answer.dump().c_str());
    std::fflush(stdout);  // the end of the process may wait for a server
    return 0;
}
