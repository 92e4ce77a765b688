#include "Command.h"
#include "HashBook.h"
#include "Help.h"
#include "Importer.h"
#include "Locations.h"
#include "ProxyFiles.h"
#include "Removal.h"
#include "Session.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"
#include "os/LastError.h"
#include "os/OS.h"
#include "support/PathHelpers.h"

#include <cerrno>
#include <memory>

namespace {

struct ProxyArguments
{
    std::string cookie;
    std::string file;  // to add or remove; the old name
    std::string newName;
    std::string location;
    unsigned height = 0;
    unsigned channels = 0;
    bool link = false;
};

// Where the clip's media is, unless the command line says otherwise. None, after a message.
std::optional<DriveId> locationFor(const ProxyArguments& given, const Cookie& cookie)
{
    if (!given.location.empty())
        return knownLocation(given.location);
    const DriveId location = SystemCache::find(cookie).getDrive();
    return location.valid() ? std::optional(location) : std::nullopt;
}

int addProxy(const Options& options, const ProxyArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<Cookie> cookie = knownCookie(given.cookie);
    const std::optional<DriveId> location = cookie ? locationFor(given, *cookie) : std::nullopt;
    if (!location)
        return exitNo;
    if (!DiskManager::prepareVolumeForMedia(*location)) {
        complain("the media folders of location %s cannot be made", labelOf(*location).c_str());
        return exitFailed;
    }
    ImportRequest request;
    request.file = given.file;
    request.location = *location;
    request.asLink = given.link;
    request.cookie = *cookie;
    request.isProxy = true;
    request.proxyHeight = given.height;
    request.proxyChannels = static_cast<unsigned char>(given.channels);
    const std::optional<Imported> imported = importMedia(request);
    if (!imported)
        return exitFailed;
    if (!imported->hash.empty())
        HashBook(projectSpaceOf(options)).add(imported->file, imported->bytes, imported->hash);
    if (options.json)
        answerJson({{"cookie", cookie->asString(true).str()},
                    {"file", utf8(imported->file)},
                    {"bytes", imported->bytes},
                    {"link", given.link},
                    {"height", given.height},
                    {"channels", given.channels}});
    else
        answer("%s  %s  %s\n", cookie->asString(true).c_str(),
               readableBytes(static_cast<double>(imported->bytes)).c_str(), utf8(imported->file).c_str());
    return exitDone;
}

// The companions carry the whole name of their file; under the old one they would be nobody's. False, after
// messages, when one could not follow.
bool moveCompanions(const LightweightString<wchar_t>& from, const LightweightString<wchar_t>& to)
{
    iFileManager* const files = OS()->getFileManager();
    std::vector<iFileManager::DirectoryItem> companions;
    files->listFilesWithPrefix(getPath(from), stripPath(from) + L".", companions);
    bool all = true;
    for (const iFileManager::DirectoryItem& companion : companions) {
        const LightweightString<wchar_t> ending = companion.name.substr(stripPath(from).size());
        if (files->renameFile(from + ending, to + ending))
            continue;
        complain("%s could not follow: %s", utf8(from + ending).c_str(), errorText(lastError()).c_str());
        all = false;
    }
    return all;
}

int renameProxy(const Options& options, const ProxyArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<Cookie> cookie = knownCookie(given.cookie);
    const std::optional<TestedFile> proxy = cookie ? findProxy(*cookie, given.file) : std::nullopt;
    if (!proxy)
        return exitNo;
    // A proxy with audio is listed under sound cookies as well; its own name decides.
    const std::string wrong = whyNoProxyName(cookieOfName(stripPath(proxy->path)), given.newName);
    if (!wrong.empty()) {
        complain("%s is no name for this proxy: %s", given.newName.c_str(), wrong.c_str());
        return exitUsage;
    }
    const LightweightString<wchar_t> renamed = getPath(proxy->path) + wide(given.newName);
    if (!OS()->getFileManager()->renameFile(proxy->path, renamed)) {
        const unsigned error = lastError();
        complain("%s cannot be renamed to %s: %s", utf8(proxy->path).c_str(), given.newName.c_str(),
                 errorText(error).c_str());
        return errnoFromError(error) == EEXIST ? exitNo : exitFailed;
    }
    SystemCache::renameProxyFile(*cookie, proxy->path, renamed);
    HashBook book(projectSpaceOf(options));
    if (const HashBook::Entry* const kept = book.find(proxy->path))
        book.add(renamed, kept->bytes, std::string(kept->hash));
    const bool complete = moveCompanions(proxy->path, renamed);
    if (options.json)
        answerJson({{"cookie", cookie->asString(true).str()},
                    {"old", utf8(proxy->path)},
                    {"file", utf8(renamed)},
                    {"height", MediaFileInfo::getProxyHeight(wide(given.newName))},
                    {"channels", MediaFileInfo::getProxyAudioChannels(wide(given.newName))}});
    else
        answer("%s\n", utf8(renamed).c_str());
    return complete ? exitDone : exitFailed;
}

int removeProxy(const Options& options, const ProxyArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<Cookie> cookie = knownCookie(given.cookie);
    const std::optional<TestedFile> proxy = cookie ? findProxy(*cookie, given.file) : std::nullopt;
    if (!proxy)
        return exitNo;
    const ClipChannel channel{*cookie, SystemCache::findEntryForCookie(*cookie)};
    const std::optional<TestedFile> high = highResFileOf(channel);
    if (high && findShared({*proxy}, {*high})) {
        complain("%s is the clip's full-resolution file under another name; nothing was removed",
                 utf8(proxy->path).c_str());
        return exitNo;
    }
    const std::vector<RemovalItem> plan = planRemoval({*proxy});
    channel.entry->deleteFile(proxy->record.getMaterialFilename());
    SystemCache::removeProxyFile(*cookie, proxy->record);
    return answerRemoval(options.json, *cookie, checkRemoval(plan));
}

void addAdd(CLI::App& proxy, const Options& options, Action& action)
{
    const auto given = std::make_shared<ProxyArguments>();
    CLI::App* const add = proxy.add_subcommand("add", "Copies (or links) a file as a proxy of a clip");
    add->add_option("COOKIE", given->cookie, "clip")->required();
    add->add_option("FILE", given->file, "media file")->required();
    add->add_option("--height", given->height, "picture height, in lines")
        ->required()
        ->check(CLI::Range(1U, pictureHeightMax));
    add->add_option("--channels", given->channels, "audio channels in it")
        ->check(CLI::Range(0, 255))
        ->capture_default_str();
    add->add_option("--location", given->location, "id or path (default: where the clip's media is)")
        ->type_name("LOCATION");
    add->add_flag("--link", given->link, "leave the file where it is and write a link file");
    addHelp(*add,
            {.notes = "The same as fsys import --proxy-of. With audio channels it serves the clip's sound "
                      "cookies as well.",
             .keys = "cookie, file (in the location), bytes (of the media), link, height (lines), channels",
             .no = "no such clip or location",
             .failed = "failed, or a proxy of that height and those channels is there already",
             .example = "fsys proxy add V0123456789ABCDEF00 small.mov --height 540 --channels 2"});
    add->callback(
        [&options, &action, given] { action = [&options, given] { return addProxy(options, *given); }; });
}

void addRename(CLI::App& proxy, const Options& options, Action& action)
{
    const auto given = std::make_shared<ProxyArguments>();
    CLI::App* const rename = proxy.add_subcommand("rename", "Gives a proxy another name on disk");
    rename->add_option("COOKIE", given->cookie, "clip")->required();
    rename->add_option("OLD", given->file, "name or path of the proxy")->required();
    rename->add_option("NEW", given->newName, "name, without folder")->required();
    addHelp(*rename,
            {.notes =
                 "It stays in its folder, and its companions follow. The name tells what the file is, so it "
                 "has to stay one of a proxy of this clip: COOKIE.A<channels>.proxy.<height>.<extension>. No "
                 "other file is ever replaced.",
             .keys = "cookie, old (path), file (its path now), height (lines), channels (of audio)",
             .no = "no such clip or proxy, or NEW is taken",
             .example = "fsys proxy rename V0123456789ABCDEF00 V0123456789ABCDEF00.A0.proxy.540.mov "
                        "V0123456789ABCDEF00.A2.proxy.540.mov"});
    rename->callback(
        [&options, &action, given] { action = [&options, given] { return renameProxy(options, *given); }; });
}

void addRm(CLI::App& proxy, const Options& options, Action& action)
{
    const auto given = std::make_shared<ProxyArguments>();
    CLI::App* const remove = proxy.add_subcommand("rm", "Deletes a proxy and its companions from disk");
    remove->add_option("COOKIE", given->cookie, "clip")->required();
    remove->add_option("FILE", given->file, "name or path of the proxy")->required();
    addHelp(*remove,
            {.keys = "cookie, dry_run (false), removed (file, kind: media, companion, target), failed "
                     "(file, reason)",
             .no = "no such clip or proxy, or the file is the clip's full-resolution file too",
             .failed = "something could not be removed",
             .example = "fsys proxy rm V0123456789ABCDEF00 V0123456789ABCDEF00.A0.proxy.540.mov"});
    remove->callback(
        [&options, &action, given] { action = [&options, given] { return removeProxy(options, *given); }; });
}

}  // namespace

void addProxyCommand(CLI::App& app, const Options& options, Action& action)
{
    CLI::App* const proxy = app.add_subcommand("proxy", "Proxies of a clip: add, rename, rm");
    proxy->require_subcommand(1);
    addGroupHelp(*proxy, "fsys proxy add V0123456789ABCDEF00 small.mov --height 540 --channels 2");
    addAdd(*proxy, options, action);
    addRename(*proxy, options, action);
    addRm(*proxy, options, action);
}
