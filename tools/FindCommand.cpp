#include "Command.h"
#include "Help.h"
#include "Session.h"
#include "fsys/MediaStatus.h"
#include "fsys/SystemCache.h"
#include "os/OS.h"

#include <list>
#include <memory>

namespace {

struct FindArguments
{
    std::string cookie;
    std::string level = "high";
    unsigned height = 0;
};

bool isProxyOf(const Cookie& cookie, const LightweightString<wchar_t>& file)
{
    std::list<MediaFileInfo> proxies;
    SystemCache::getProxyFiles(cookie, proxies);
    for (const MediaFileInfo& proxy : proxies)
        if (proxy.getPhysicalFilename(false) == file)
            return true;
    return false;
}

int find(const Options& options, const FindArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const Cookie cookie = cookieOf(given.cookie);
    LightweightString<wchar_t> file;
    const bool known = cookie.valid() && SystemCache::findEntryForCookie(cookie);
    if (known)
        SystemCache::findFileForCookie(cookie, file, formatOf(given.level, given.height));
    const char* const kind = !file.empty() && isProxyOf(cookie, file) ? "proxy" : "high";
    const char* const status = !known                                                      ? "unknown"
                               : !file.empty() && OS()->getFileManager()->fileExists(file) ? "online"
                                                                                           : "offline";
    const bool online = std::string(status) == "online";
    if (options.json)
        answerJson({{"cookie", cookie.valid() ? cookie.asString(true).str() : given.cookie},
                    {"file", utf8(file)},
                    {"kind", kind},
                    {"status", status}});
    else if (online)
        answer("%s\n%s, %s\n", utf8(file).c_str(), kind, status);
    else
        complain("%s is %s", given.cookie.c_str(), status);
    return online ? exitDone : exitNo;
}

}  // namespace

void addFindCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<FindArguments>();
    CLI::App* const command = app.add_subcommand("find", "The file to open for a clip, its kind and status");
    command->add_option("COOKIE", given->cookie, "clip")->required();
    command->add_option("--level", given->level, "which file is wanted")
        ->check(CLI::IsMember({"high", "proxy", "auto"}))
        ->capture_default_str();
    command->add_option("--height", given->height, "with auto: a proxy at least this tall, in lines")
        ->check(CLI::Range(1U, pictureHeightMax));
    addHelp(*command,
            {.notes =
                 "high: the full-resolution file; proxy: the first proxy; auto: the first proxy at least as "
                 "tall as --height, and the full-resolution file where --height is not given. Where there is "
                 "none of that kind, another file of the clip is answered.",
             .keys = "cookie, file (path; of a link that of its target), kind (high, proxy), status (online, "
                     "offline, unknown)",
             .done = "the file is online",
             .no = "the clip is offline or unknown",
             .example = "fsys find V0123456789ABCDEF00 --level auto --height 540"});
    command->callback(
        [&options, &action, given] { action = [&options, given] { return find(options, *given); }; });
}
