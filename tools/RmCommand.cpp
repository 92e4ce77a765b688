#include "Command.h"
#include "Help.h"
#include "Removal.h"
#include "Session.h"
#include "fsys/SystemCache.h"

#include <memory>
#include <set>

namespace {

struct RmArguments
{
    std::string cookie;
    bool high = false;
    bool proxies = false;
    bool all = false;
    bool dryRun = false;
};

unsigned maskOf(const RmArguments& given)
{
    if (given.all)
        return eHighRes | eProxy;
    return (given.high ? eHighRes : 0U) | (given.proxies ? eProxy : 0U);
}

struct Choice
{
    std::vector<TestedFile> leaving;
    std::vector<TestedFile> staying;
};

// A file's name tells its kind. The cache files a second full-resolution file of the cookie, as on another
// location, among the proxies, or nowhere.
Choice choose(const ClipChannel& channel, unsigned mask)
{
    Choice choice;
    std::set<std::string> seen;
    const auto add = [&](const TestedFile& file) {
        const unsigned kind = file.record.isProxy() ? eProxy : eHighRes;
        if (seen.insert(utf8(file.path)).second)
            ((mask & kind) != 0 ? choice.leaving : choice.staying).push_back(file);
    };
    if (const std::optional<TestedFile> high = highResFileOf(channel)) {
        add(*high);
        for (const TestedFile& copy : copiesOf(*high))
            add(copy);
    }
    for (const TestedFile& proxy : proxyFilesOf(channel))
        add(proxy);
    return choice;
}

// One by one: the cache would take every file of its list of proxies along.
void removeFiles(const ClipChannel& channel, const Choice& choice)
{
    const LightweightString<wchar_t> high = channel.entry->getHighResFile().getLinkFileName();
    for (const TestedFile& file : choice.leaving) {
        if (file.path == high) {
            SystemCache::removeFile(channel.cookie, true, eHighRes);
            continue;
        }
        channel.entry->deleteFile(file.record.getMaterialFilename());
        SystemCache::removeProxyFile(channel.cookie, file.record);
    }
}

int removeMedia(const Options& options, const RmArguments& given)
{
    const unsigned mask = maskOf(given);
    if (mask == 0) {
        complain(
            "say which files are to go: --high, --proxies or --all\nRun with --help for more information.");
        return exitUsage;
    }
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<Cookie> cookie = knownCookie(given.cookie);
    if (!cookie)
        return exitNo;
    const ClipChannel channel{*cookie, SystemCache::findEntryForCookie(*cookie)};
    const Choice choice = choose(channel, mask);
    if (choice.leaving.empty()) {
        complain("%s has no %s", given.cookie.c_str(), mask == eProxy ? "proxies" : "full-resolution file");
        return exitNo;
    }
    // The same folder registered twice, or a hard link: the name would go with data that is to stay.
    if (const TestedFile* const shared = findShared(choice.leaving, choice.staying)) {
        complain("%s is the same file as one that is to stay; nothing was removed",
                 utf8(shared->path).c_str());
        return exitNo;
    }
    const std::vector<RemovalItem> plan = planRemoval(choice.leaving);
    if (given.dryRun)
        return answerPlan(options.json, *cookie, plan);
    removeFiles(channel, choice);
    return answerRemoval(options.json, *cookie, checkRemoval(plan));
}

}  // namespace

void addRmCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<RmArguments>();
    CLI::App* const command = app.add_subcommand("rm", "Deletes media of a clip from disk");
    command->add_option("COOKIE", given->cookie, "clip, one channel of it")->required();
    CLI::Option* const high = command->add_flag("--high", given->high, "the full-resolution file");
    CLI::Option* const proxies = command->add_flag("--proxies", given->proxies, "the proxies");
    command->add_flag("--all", given->all, "both")->excludes(high)->excludes(proxies);
    command->add_flag("--dry-run", given->dryRun, "list what would go, and delete nothing");
    addHelp(*command,
            {.notes =
                 "One of --high, --proxies and --all has to be given. Only files of the one cookie go; other "
                 "channels of the clip stay. With a file go its companions (files named after it with "
                 "\".\" and more) and, for a link, the target when it lies below the link's own folder; "
                 "targets elsewhere stay. Copies of the full-resolution file on other locations go with it; "
                 "a file is a proxy when its name is one's. A proxy with audio belongs to the sound cookies "
                 "that it "
                 "serves, too.",
             .keys = "cookie, dry_run, removed (file, kind: media, companion, target), failed (file, reason)",
             .no = "no such clip, nothing of that kind, or a file that is also one that is to stay",
             .failed = "something could not be removed",
             .example = "fsys rm V0123456789ABCDEF00 --proxies --dry-run"});
    command->callback(
        [&options, &action, given] { action = [&options, given] { return removeMedia(options, *given); }; });
}
