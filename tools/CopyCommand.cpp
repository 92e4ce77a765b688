#include "Command.h"
#include "HashBook.h"
#include "Help.h"
#include "Locations.h"
#include "MediaCopy.h"
#include "MediaList.h"
#include "Session.h"
#include "fsys/DiskManager.h"

#include <algorithm>
#include <memory>
#include <set>

namespace {

struct CopyArguments
{
    std::string cookie;
    std::string location;
    bool verify = false;
};

MediaError readBack(const MediaRecording& copy)
{
    Progress progress("verify", copy.bytes, Progress::Unit::bytes);
    const MediaHash read = hashOfMedia(copy.path, progress);
    if (read.error || read.xxh128 == copy.hash)
        return read.error;
    return {MediaErrorCode::readFailed, 0, utf8(copy.path) + " reads back differently"};
}

// Copies to the same path below the other root, so that a scan of it finds the same clip.
MediaRecording copyFile(const ListedMedia& media, DriveId location, bool verify)
{
    MediaRecording copy;
    MediaReader reader(media.file.getLinkFileName());
    if (!reader.isOpen()) {
        copy.error = reader.openError();
        return copy;
    }
    MediaWriterOptions options;
    options.hash = true;
    MediaWriter writer(media.cookie, {location, media.file.getMaterialFilename().getPath()}, options);
    if (!writer.isOpen()) {
        copy.error = writer.error();
        return copy;
    }
    Progress progress("copy", reader.size(), Progress::Unit::bytes);
    copy = copyMedia(reader, writer, progress);
    if (copy.complete && verify)
        copy.error = readBack(copy);
    return copy;
}

void tell(const Options& options, const CopyArguments& given, const ListedMedia& media,
          const MediaRecording& copy)
{
    const std::string from = utf8(media.file.getLinkFileName());
    if (options.json)
        answerJson({{"cookie", media.cookie.asString(true).str()},
                    {"kind", media.isProxy ? "proxy" : "high"},
                    {"from", from},
                    {"file", copy.complete ? Json(utf8(copy.path)) : Json(nullptr)},
                    {"bytes", copy.bytes},
                    {"xxh128", copy.complete ? Json(copy.hash) : Json(nullptr)},
                    {"verified", given.verify && copy.complete ? Json(!copy.error) : Json(nullptr)},
                    {"error", copy.error ? Json(copy.error.text) : Json(nullptr)}});
    else if (copy.complete)
        answer("%s  %-5s  %9s  %s%s\n", media.cookie.asString(true).c_str(), media.isProxy ? "proxy" : "high",
               readableBytes(static_cast<double>(copy.bytes)).c_str(), utf8(copy.path).c_str(),
               given.verify && !copy.error ? ", verified" : "");
    if (copy.error)
        complain("%s: %s", from.c_str(), copy.error.text.c_str());
}

// Of files with one name the first goes, unless the location has one already.
void leaveOutWhatIsThere(std::vector<ListedMedia>& media, DriveId location)
{
    const auto nameOf = [](const ListedMedia& file) {
        return utf8(file.file.getMaterialFilename().getPath());
    };
    std::set<std::string> taken;
    for (const ListedMedia& file : media)
        if (file.file.getMaterialFilename().getDrive() == location)
            taken.insert(nameOf(file));
    std::erase_if(media, [&](const ListedMedia& file) { return !taken.insert(nameOf(file)).second; });
}

int copyClip(const Options& options, const CopyArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<DriveId> location = knownLocation(given.location);
    const std::optional<Cookie> cookie = location ? knownCookie(given.cookie) : std::nullopt;
    if (!cookie)
        return exitNo;
    // Listed before anything is copied: the cache takes every copy for the clip's file from then on.
    std::vector<ListedMedia> media = mediaOf(everyChannelOf(*cookie));
    leaveOutWhatIsThere(media, *location);
    if (media.empty() && !options.json)
        answer("All media of %s lie there already.\n", given.cookie.c_str());
    if (!DiskManager::prepareVolumeForMedia(*location)) {
        complain("the media folders of location %s cannot be made", given.location.c_str());
        return exitFailed;
    }
    HashBook book(projectSpaceOf(options));
    ExitStatus status = exitDone;
    for (const ListedMedia& file : media) {
        const MediaRecording copy = copyFile(file, *location, given.verify);
        if (copy.complete && !copy.error)
            book.add(copy.path, copy.bytes, copy.hash);
        else
            status = exitFailed;
        tell(options, given, file, copy);
    }
    return status;
}

}  // namespace

void addCopyCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<CopyArguments>();
    CLI::App* const command = app.add_subcommand(
        "copy", "Copies all media of a clip, its channels and proxies, to another location");
    command->add_option("COOKIE", given->cookie, "clip")->required();
    command->add_option("--location", given->location, "id or path of the location to copy to")
        ->type_name("LOCATION")
        ->required();
    command->add_flag("--verify", given->verify, "read every copy back and compare");
    addHelp(
        *command,
        {.notes =
             "The copy of a link holds the media itself. No file is replaced. Copies keep their names, so "
             "the clip is found at either location.",
         .keys =
             "cookie, kind (high, proxy), from, file (null when it could not be copied), bytes, xxh128 (32 "
             "hexadecimal digits), verified (null without --verify), error (null for none); one object per "
             "file",
         .no = "no such clip or location",
         .failed = "a file could not be copied",
         .example = "fsys copy V0123456789ABCDEF00 --location 2 --verify"});
    command->callback(
        [&options, &action, given] { action = [&options, given] { return copyClip(options, *given); }; });
}
