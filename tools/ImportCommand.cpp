#include "Command.h"
#include "HashBook.h"
#include "Help.h"
#include "Importer.h"
#include "Session.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"

#include <memory>
#include <vector>

namespace {

struct ImportArguments
{
    std::vector<std::string> files;
    std::string location;
    bool link = false;
    std::string proxyOf;
    unsigned height = 0;
    unsigned channels = 0;
    bool sound = false;
};

// The cookie that a file is filed under; invalid after a message.
Cookie cookieFor(const ImportArguments& given)
{
    if (given.proxyOf.empty())
        return given.sound ? convertCookie(Cookie::makeNew(CookieTypeSound), CookieTypeSound, 1)
                           : Cookie::makeNew();
    const Cookie cookie = cookieOf(given.proxyOf);
    if (cookie.valid() && SystemCache::fileExists(cookie))
        return cookie;
    complain("no clip %s is known", given.proxyOf.c_str());
    return {};
}

int import(const Options& options, const ImportArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<DriveId> location = findLocation(given.location);
    if (!location) {
        complain("%s is no media location", given.location.c_str());
        return exitNo;
    }
    if (!DiskManager::prepareVolumeForMedia(*location)) {
        complain("the media folders of location %s cannot be made", given.location.c_str());
        return exitFailed;
    }
    HashBook book(projectSpaceOf(options));
    ExitStatus status = exitDone;
    for (const std::string& file : given.files) {
        ImportRequest request;
        request.file = file;
        request.location = *location;
        request.asLink = given.link;
        request.cookie = cookieFor(given);
        request.isProxy = !given.proxyOf.empty();
        request.proxyHeight = given.height;
        request.proxyChannels = static_cast<unsigned char>(given.channels);
        if (!request.cookie.valid())
            return exitNo;
        const std::optional<Imported> imported = importMedia(request);
        // The others are brought in all the same, as a copying program does.
        if (imported && !imported->hash.empty())
            book.add(imported->file, imported->bytes, imported->hash);
        if (!imported)
            status = exitFailed;
        else if (options.json)
            answerJson({{"cookie", imported->cookie.asString(true).str()},
                        {"file", utf8(imported->file)},
                        {"bytes", imported->bytes},
                        {"link", given.link}});
        else
            answer("%s  %s  %s\n", imported->cookie.asString(true).c_str(),
                   readableBytes(static_cast<double>(imported->bytes)).c_str(), utf8(imported->file).c_str());
    }
    return status;
}

}  // namespace

void addImportCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<ImportArguments>();
    CLI::App* const command = app.add_subcommand(
        "import", "Copies (or links) media to a location under a new cookie, and prints the cookie");
    command->add_option("FILE", given->files, "media files")->required();
    command->add_option("--location", given->location, "id or path")->type_name("LOCATION")->required();
    command->add_flag("--link", given->link, "leave the media where it is and write link files");
    CLI::Option* const proxy =
        command->add_option("--proxy-of", given->proxyOf, "file them as proxies of this clip")
            ->type_name("COOKIE");
    CLI::Option* const height =
        command->add_option("--height", given->height, "picture height of the proxy, in lines")
            ->needs(proxy)
            ->check(CLI::Range(1U, pictureHeightMax));
    command->add_option("--channels", given->channels, "audio channels in the proxy")
        ->needs(proxy)
        ->check(CLI::Range(0, 255));
    proxy->needs(height);
    command->add_flag("--sound", given->sound, "sound: a sound cookie, the \"Sound\" folder")
        ->excludes(proxy);
    addHelp(*command,
            {.notes = "A file that cannot be brought in does not keep the others out.",
             .keys = "cookie, file (path in the location), bytes (of the media), link; one object per file",
             .no = "no such location or clip",
             .failed = "at least one file could not be brought in",
             .example = "fsys import shot7.mov --location 1"});
    command->callback(
        [&options, &action, given] { action = [&options, given] { return import(options, *given); }; });
}
