#include "Command.h"
#include "HashBook.h"
#include "Help.h"
#include "MediaCopy.h"
#include "MediaList.h"
#include "Session.h"
#include "os/OS.h"

#include <map>
#include <memory>

namespace {

struct VerifyArguments
{
    std::vector<std::string> cookies;
    bool all = false;
    bool adopt = false;
};

// The media to read; none after a message about a clip that is not known.
std::optional<std::vector<ListedMedia>> chosenMedia(const VerifyArguments& given)
{
    std::vector<Clip> clips;
    if (given.all)
        clips = everyClip();
    for (const std::string& text : given.cookies) {
        const std::optional<Cookie> cookie = knownCookie(text);
        if (!cookie)
            return std::nullopt;
        clips.push_back(everyChannelOf(*cookie));
    }
    std::vector<ListedMedia> media;
    for (const Clip& clip : clips)
        for (const ListedMedia& file : mediaOf(clip))
            media.push_back(file);
    return media;
}

// One file, and how it compares.
struct FileVerdict
{
    MediaHash read;
    std::string kept;  // hash that the project space holds; empty for none
    const char* status = "ok";
};

FileVerdict judge(const ListedMedia& media, const HashBook& book, Progress& progress)
{
    FileVerdict verdict;
    const LightweightString<wchar_t> path = media.file.getLinkFileName();
    verdict.read = hashOfMedia(path, progress);
    const HashBook::Entry* const kept = book.find(path);
    if (kept)
        verdict.kept = kept->hash;
    if (verdict.read.error)
        verdict.status = "unreadable";
    else if (!kept)
        verdict.status = "unknown";
    else if (kept->bytes != verdict.read.bytes || kept->hash != verdict.read.xxh128)
        verdict.status = "differs";
    return verdict;
}

void tell(const Options& options, const ListedMedia& media, const FileVerdict& verdict)
{
    const std::string file = utf8(media.file.getLinkFileName());
    if (options.json)
        answerJson({{"cookie", media.cookie.asString(true).str()},
                    {"kind", media.isProxy ? "proxy" : "high"},
                    {"file", file},
                    {"bytes", verdict.read.bytes},
                    {"xxh128", verdict.read.error ? Json(nullptr) : Json(verdict.read.xxh128)},
                    {"kept", verdict.kept.empty() ? Json(nullptr) : Json(verdict.kept)},
                    {"status", verdict.status},
                    {"error", verdict.read.error ? Json(verdict.read.error.text) : Json(nullptr)}});
    else
        answer("%-10s  %9s  %s\n", verdict.status,
               readableBytes(static_cast<double>(verdict.read.bytes)).c_str(), file.c_str());
    if (verdict.read.error)
        complain("%s", verdict.read.error.text.c_str());
}

std::uint64_t totalBytes(const std::vector<ListedMedia>& media)
{
    std::uint64_t bytes = 0;
    for (const ListedMedia& file : media)
        bytes += OS()->getFileManager()->getFileSize(targetOf(file.file.getLinkFileName()));
    return bytes;
}

int verifyMedia(const Options& options, const VerifyArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<std::vector<ListedMedia>> media = chosenMedia(given);
    if (!media)
        return exitNo;
    HashBook book(projectSpaceOf(options));
    std::map<std::string, unsigned> counts;
    ExitStatus status = exitDone;
    {
        Progress progress("verify", totalBytes(*media), Progress::Unit::bytes);
        for (const ListedMedia& file : *media) {
            FileVerdict verdict = judge(file, book, progress);
            const bool unknown = std::string(verdict.status) == "unknown";
            if (given.adopt && unknown) {
                if (book.add(file.file.getLinkFileName(), verdict.read.bytes, verdict.read.xxh128))
                    verdict.status = "adopted";
                else
                    status = exitFailed;
            }
            ++counts[verdict.status];
            progress.clear();
            tell(options, file, verdict);
            if (verdict.read.error || std::string(verdict.status) == "differs")
                status = std::max(status, exitNo);
        }
    }
    if (!options.json)
        answer("files: %zu, ok: %u, differing: %u, unreadable: %u, adopted: %u, without a kept hash: %u\n",
               media->size(), counts["ok"], counts["differs"], counts["unreadable"], counts["adopted"],
               counts["unknown"]);
    return status;
}

}  // namespace

void addVerifyCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<VerifyArguments>();
    CLI::App* const command = app.add_subcommand(
        "verify", "Reads media end to end and compares it with the hashes that the project space keeps");
    CLI::Option* const cookies = command->add_option("COOKIE", given->cookies, "clips");
    command->add_flag("--all", given->all, "every clip")->excludes(cookies);
    command->add_flag("--adopt", given->adopt, "keep the hash of media that has none yet");
    addHelp(
        *command,
        {.notes =
             "Hashes are kept when media is recorded, copied or imported as a copy, in MediaHashes.jsonl of "
             "the project space. Copies of a clip on other locations are read too. What is not there at all "
             "is "
             "not noticed: fsys status tells which clips are offline.",
         .keys =
             "cookie, kind (high, proxy), file, bytes, xxh128 (as read: 32 hexadecimal digits), kept (null "
             "for "
             "none), status (ok, differs, unreadable, unknown: no hash is kept, adopted: the one read now is "
             "kept from here on), error (null for none); one object per file",
         .done = "nothing differs",
         .no = "a file differs or cannot be read, or there is no such clip",
         .failed = "a hash could not be kept",
         .example = "fsys verify --all"});
    command->callback([&options, &action, given, cookies] {
        if (!given->all && cookies->count() == 0)
            throw CLI::RequiredError("COOKIE or --all");
        action = [&options, given] { return verifyMedia(options, *given); };
    });
}
