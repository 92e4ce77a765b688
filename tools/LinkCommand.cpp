#include "ClipFiles.h"
#include "Command.h"
#include "Help.h"
#include "Locations.h"
#include "Session.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <memory>

namespace {

struct LinkArguments
{
    std::string cookie;
    std::string location;
};

bool isThere(const TestedFile& file) { return OS()->getFileManager()->fileExists(file.path); }

// Why the link of this channel must not move; empty when it may.
std::string whyItStays(const std::optional<TestedFile>& high, const std::vector<TestedFile>& proxies,
                       const DriveId& destination)
{
    if (!high || !high->isLink)
        return "is no link";
    if (high->target.empty())
        return "is a link that names no file";
    if (high->targetExists)
        return "is online: its link points at " + utf8(high->target) + ", which exists";
    if (!proxies.empty())
        return "has proxies, which would stay behind; remove them first";
    if (high->location() == destination)
        return "has its link there already";
    return "";
}

int moveLink(const Options& options, const LinkArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<Cookie> cookie = knownCookie(given.cookie);
    const std::optional<DriveId> destination = cookie ? knownLocation(given.location) : std::nullopt;
    if (!destination)
        return exitNo;
    const ClipChannel channel{*cookie, SystemCache::findEntryForCookie(*cookie)};
    const std::optional<TestedFile> before = highResFileOf(channel);
    const std::string reason = whyItStays(before, proxyFilesOf(channel), *destination);
    if (!reason.empty()) {
        complain("%s %s", given.cookie.c_str(), reason.c_str());
        return exitNo;
    }
    const LightweightString<wchar_t> moved =
        MaterialFilename(*destination, before->record.getMaterialFilename().getPath()).getOsPath();
    if (OS()->getFileManager()->fileExists(moved)) {
        complain("%s is there already", utf8(moved).c_str());
        return exitNo;
    }
    SystemCache::updateLinks(*cookie, *destination);
    // The new link stands before the old one goes, so that the clip is known whatever happens in between.
    if (!DiskManager::prepareVolumeForMedia(*destination) || !channel.entry->realiseLinks(false)) {
        complain("cannot write %s: %s", utf8(moved).c_str(), errorText(lastError()).c_str());
        return exitFailed;
    }
    const bool oldIsGone = OS()->getFileManager()->deleteFile(before->path);
    if (!oldIsGone)
        complain("%s could not be removed: %s", utf8(before->path).c_str(), errorText(lastError()).c_str());
    if (options.json)
        answerJson({{"cookie", cookie->asString(true).str()},
                    {"old", utf8(before->path)},
                    {"file", utf8(moved)},
                    {"location", destination->asString().str()},
                    {"target", utf8(before->target)}});
    else
        answer("%s -> %s\n", utf8(moved).c_str(), utf8(before->target).c_str());
    return oldIsGone ? exitDone : exitFailed;
}

std::vector<TestedFile> allFilesOf(const ClipChannel& channel)
{
    std::vector<TestedFile> files = proxyFilesOf(channel);
    if (const std::optional<TestedFile> high = highResFileOf(channel))
        files.insert(files.begin(), *high);
    return files;
}

Json pathsOf(const std::vector<TestedFile>& files)
{
    Json paths = Json::array();
    for (const TestedFile& file : files)
        paths.push_back(utf8(file.path));
    return paths;
}

int realise(const Options& options, const LinkArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<Cookie> cookie = knownCookie(given.cookie);
    if (!cookie)
        return exitNo;
    const ClipChannel channel{*cookie, SystemCache::findEntryForCookie(*cookie)};
    std::vector<TestedFile> missing;
    std::vector<TestedFile> standing;
    for (const TestedFile& file : allFilesOf(channel))
        (isThere(file) ? standing : missing).push_back(file);
    for (const TestedFile& file : missing)
        if (!file.isLink || file.target.empty()) {
            // A link file in its place would hide from the next scan that media is lost.
            complain("%s is gone, and it was no link", utf8(file.path).c_str());
            return exitNo;
        }
    SystemCache::realiseLinks(*cookie);
    int status = exitDone;
    std::vector<TestedFile> written;
    for (const TestedFile& file : missing) {
        if (isThere(file)) {
            written.push_back(file);
            continue;
        }
        complain("cannot write %s", utf8(file.path).c_str());
        status = exitFailed;
    }
    if (options.json)
        answerJson({{"cookie", cookie->asString(true).str()},
                    {"written", pathsOf(written)},
                    {"standing", pathsOf(standing)}});
    else {
        for (const TestedFile& file : written)
            answer("written   %s -> %s\n", utf8(file.path).c_str(), utf8(file.target).c_str());
        for (const TestedFile& file : standing)
            answer("standing  %s\n", utf8(file.path).c_str());
    }
    return status;
}

const CLI::App* addRealise(CLI::App& link, const Options& options, Action& action)
{
    const auto given = std::make_shared<LinkArguments>();
    CLI::App* const command =
        link.add_subcommand("realise", "Writes the link files of a clip where none stand");
    command->add_option("COOKIE", given->cookie, "clip")->required();
    addHelp(
        *command,
        {.notes =
             "Files that stand, links and media, are left as they are. What is on the disk when the command "
             "starts is what it knows, so it has work only for links that vanish meanwhile.",
         .keys = "cookie, written (paths of link files), standing (paths that were left as they are)",
         .done = "every file stands now",
         .no = "no such clip, or media is gone that is no link",
         .example = "fsys link realise V0123456789ABCDEF00"});
    command->callback(
        [&options, &action, given] { action = [&options, given] { return realise(options, *given); }; });
    return command;
}

}  // namespace

void addLinkCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<LinkArguments>();
    CLI::App* const link = app.add_subcommand("link", "Moves an offline clip's link to another location");
    link->require_subcommand(0, 1);
    CLI::Option* const cookie = link->add_option("COOKIE", given->cookie, "clip");
    CLI::Option* const location =
        link->add_option("--to-location", given->location, "id or path of the location")
            ->type_name("LOCATION");
    addHelp(
        *link,
        {.notes =
             "Only a link whose target is missing moves, and only of a clip without proxies. The link file "
             "is written at the new location under the same name and pointing at the same target; then the "
             "old one goes. A file that is there already is never replaced.",
         .keys = "cookie, old (path), file (path of the link now), location (id), target (what it points at)",
         .no = "no such clip or location, or the link must not move; a message says why",
         .example = "fsys link V0123456789ABCDEF00 --to-location 2"});
    const CLI::App* const realiseCommand = addRealise(*link, options, action);
    link->callback([&options, &action, given, realiseCommand, cookie, location] {
        if (realiseCommand->parsed())
            return;
        for (const CLI::Option* option : {cookie, location})
            if (option->count() == 0)
                throw CLI::RequiredError(option->get_name());
        action = [&options, given] { return moveLink(options, *given); };
    });
}
