#include "Command.h"
#include "Help.h"
#include "Qz/StringHelpers.h"
#include "fsys/DiskManager.h"
#include "fsys/MaterialFilename.h"
#include "os/OS.h"
#include "support/PathHelpers.h"

#include <algorithm>
#include <filesystem>
#include <memory>

namespace {

using Shares = std::vector<iFileManager::ShareInfo>;

Shares sharesOfThisMachine()
{
    iFileManager* const files = OS()->getFileManager();
    return files->listShares(files->getMachineName());
}

int listShares(const Options& options)
{
    Json shares = Json::array();
    for (const iFileManager::ShareInfo& share : sharesOfThisMachine())
        shares.push_back({{"unc", utf8(share.uncName)}, {"path", utf8(share.localPath)}});
    if (options.json)
        answerJson({{"machine", utf8(OS()->getFileManager()->getMachineName())}, {"shares", shares}});
    else
        for (const Json& share : shares)
            answer("%-30s %s\n", share["unc"].get<std::string>().c_str(),
                   share["path"].get<std::string>().c_str());
    return exitDone;
}

// Shells eat backslashes, so a name may be written with '/'.
LightweightString<wchar_t> networkName(std::string text)
{
    if (text.starts_with("//"))
        std::replace(text.begin(), text.end(), '/', '\\');
    return wide(text);
}

// Shares are found by the first characters of a name, which may end inside the name of another share.
bool namesAShare(const LightweightString<wchar_t>& unc)
{
    const Shares shares = sharesOfThisMachine();
    return std::any_of(shares.begin(), shares.end(), [&](const iFileManager::ShareInfo& share) {
        const std::size_t length = share.uncName.size();
        return Qz::startsWithIgnoringCase(unc, share.uncName) &&
               (unc.size() == length || unc[length] == L'\\' || unc[length] == L'/');
    });
}

int answerPair(const Options& options, const LightweightString<wchar_t>& unc, const std::string& path,
               const std::string& forPeople)
{
    if (options.json)
        answerJson({{"unc", utf8(unc)}, {"path", path}});
    else
        answer("%s\n", forPeople.c_str());
    return exitDone;
}

int toLocal(const Options& options, const std::string& text)
{
    const LightweightString<wchar_t> unc = networkName(text);
    const LightweightString<wchar_t> local =
        namesAShare(unc) ? DiskManager::convertUNCtoLocalShare(unc) : LightweightString<wchar_t>();
    if (local.empty()) {
        complain("%s is in no share of this machine", utf8(unc).c_str());
        return exitNo;
    }
    const std::string path = utf8(fixForeignOSFileName(local));
    return answerPair(options, unc, path, path);
}

int toUnc(const Options& options, const std::string& text)
{
    const std::string path = std::filesystem::absolute(text).lexically_normal().string();
    const LightweightString<wchar_t> unc =
        DiskManager::convertLocalToUNC(MaterialFilename(DriveId(), wide(path)));
    if (unc.empty()) {
        complain("%s has no network name", path.c_str());
        return exitNo;
    }
    return answerPair(options, unc, path, utf8(unc));
}

}  // namespace

void addShareCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<std::string>();
    CLI::App* const share = app.add_subcommand("share", "Network names: list, to-local, to-unc");
    share->require_subcommand(1);
    addGroupHelp(*share, "fsys share to-unc /media/raid/Material");

    CLI::App* const list = share->add_subcommand("list", "The folders that this machine exports");
    addHelp(*list, {.notes = "As Samba's own configuration tells; FSYS_SMB_CONF names another file.",
                    .keys = "machine, shares (unc: its network name, path: the folder)",
                    .done = "done, also when nothing is exported",
                    .example = "fsys share list"});
    list->callback([&options, &action] { action = [&options] { return listShares(options); }; });

    CLI::App* const local = share->add_subcommand("to-local", "The local path of a network name");
    local->add_option("UNC", *given, "network name, with backslashes or as in //machine/share/clip")
        ->required();
    addHelp(*local, {.notes = "Upper and lower case of machine and share do not differ.",
                     .keys = "unc, path",
                     .no = "it is in no share of this machine",
                     .example = "fsys share to-local //edit3/media/clip.mov"});
    local->callback(
        [&options, &action, given] { action = [&options, given] { return toLocal(options, *given); }; });

    CLI::App* const unc = share->add_subcommand("to-unc", "The network name of a local path");
    unc->add_option("PATH", *given, "file or folder")->required();
    addHelp(*unc, {.keys = "unc, path",
                   .no = "the path is on no network mount and in no exported folder",
                   .example = "fsys share to-unc /media/raid/Material"});
    unc->callback(
        [&options, &action, given] { action = [&options, given] { return toUnc(options, *given); }; });
}
