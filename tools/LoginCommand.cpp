#include "Command.h"
#include "Help.h"
#include "Interruption.h"
#include "fsys/NetLogin.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/OS.h"
#include "support/PathHelpers.h"
#include "support/Preferences.h"

#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>

namespace {

// Where this user logged in last, for a logout that names no folder.
constexpr char folderPreference[] = "Login Folder";
constexpr double secondsMax = 1e9;

struct LoginArguments
{
    std::string folder;
    double seconds = 0;
};

enum class Claim { held, taken, impossible };

// A claim on the lock file tells other processes of this machine that its login is running. The file's claim
// outlives everything else here: the file is removed at the very end of the process, and must not be claimed
// by another before that.
Claim claim(const LightweightString<wchar_t>& lockFile, unsigned creation)
{
    constexpr int triesMax = 10;
    iFileManager* const files = OS()->getFileManager();
    static auto* const held = new Qz::Ptr<iFile>;
    for (int i = 0; i < triesMax; ++i) {
        *held = files->open(lockFile, os::accessReadWrite, creation, os::shareAll, os::attributeLockFile);
        if (!*held || !(*held)->isOpen())
            return Claim::impossible;
        if (!(*held)->claim())
            return errnoFromError(lastError()) == EWOULDBLOCK ? Claim::taken : Claim::impossible;
        // A login that was just ending may have removed the file after it was opened here.
        FILE_INFO info;
        if ((*held)->getInfo(&info) && info.links > 0)
            return Claim::held;
    }
    setLastErrno(ENOENT);
    return Claim::impossible;
}

Json othersIn(const LightweightString<wchar_t>& folder, const LightweightString<wchar_t>& ownFile)
{
    std::vector<iFileManager::DirectoryItem> lockFiles;
    OS()->getFileManager()->listDirectory(joinPaths(folder, L"*.cli"), lockFiles);
    Json others = Json::array();
    for (const iFileManager::DirectoryItem& file : lockFiles)
        if (file.name != stripPath(ownFile))
            others.push_back(utf8(stripExtension(file.name)));
    return others;
}

void answerState(const Options& options, const char* state, const LightweightString<wchar_t>& lockFile,
                 const Json& others)
{
    const std::string machine = utf8(OS()->getFileManager()->getMachineName());
    if (options.json) {
        answerJson({{"state", state}, {"machine", machine}, {"file", utf8(lockFile)}, {"others", others}});
        return;
    }
    answer("%s: %s\n", machine.c_str(), state);
    for (const Json& other : others)
        answer("%s: logged in too\n", other.get<std::string>().c_str());
}

int complainOf(Claim result, const LightweightString<wchar_t>& lockFile)
{
    if (result == Claim::taken) {
        complain("a login of this machine is running: it holds %s, and ends when it is interrupted",
                 utf8(lockFile).c_str());
        return exitNo;
    }
    complain("cannot hold %s: %s", utf8(lockFile).c_str(), errorText(lastError()).c_str());
    return exitFailed;
}

void waitForTheEnd(double seconds)
{
    using Clock = std::chrono::steady_clock;
    const auto end = seconds > 0 ? Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                      std::chrono::duration<double>(seconds))
                                 : Clock::time_point::max();
    Interruption::sleepUntil(end);
}

int login(const Options& options, const LoginArguments& given)
{
    const LightweightString<wchar_t> folder =
        wide(std::filesystem::absolute(given.folder).lexically_normal().string());
    if (!OS()->getFileManager()->directoryExists(folder)) {
        complain("%s is not a folder", utf8(folder).c_str());
        return exitFailed;
    }
    const LightweightString<wchar_t> lockFile = getNetLoginLockFileName(folder);
    if (const Claim result = claim(lockFile, os::creationOpenOrNewRW); result != Claim::held)
        return complainOf(result, lockFile);
    if (!NetLogin(folder)) {
        complain("cannot hold %s: %s", utf8(lockFile).c_str(), errorText(lastError()).c_str());
        return exitFailed;
    }
    const Interruption interruption;
    if (!prefs().setPreference(folderPreference, folder))
        complain("the folder could not be kept in the preferences: a logout has to name it");
    answerState(options, "logged in", lockFile, othersIn(folder, lockFile));
    waitForTheEnd(given.seconds);
    NetLogout();
    answerState(options, "logged out", lockFile, othersIn(folder, lockFile));
    return exitDone;
}

std::optional<LightweightString<wchar_t>> folderToLeave(const std::string& given)
{
    if (!given.empty())
        return wide(std::filesystem::absolute(given).lexically_normal().string());
    const LightweightString<wchar_t> last = prefs().getPreference(folderPreference, L"");
    if (!last.empty())
        return last;
    complain("no login of this user is known; name the folder");
    return std::nullopt;
}

int logout(const Options& options, const std::string& given)
{
    const std::optional<LightweightString<wchar_t>> folder = folderToLeave(given);
    if (!folder)
        return exitNo;
    iFileManager* const files = OS()->getFileManager();
    const LightweightString<wchar_t> lockFile = getNetLoginLockFileName(*folder);
    if (!files->fileExists(lockFile)) {
        complain("this machine is not logged in to %s", utf8(*folder).c_str());
        return exitNo;
    }
    if (const Claim result = claim(lockFile, os::creationOpen); result != Claim::held)
        return complainOf(result, lockFile);
    if (!files->deleteFile(lockFile)) {
        complain("cannot remove %s: %s", utf8(lockFile).c_str(), errorText(lastError()).c_str());
        return exitFailed;
    }
    answerState(options, "logged out", lockFile, othersIn(*folder, lockFile));
    return exitDone;
}

}  // namespace

void addLoginCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<LoginArguments>();
    CLI::App* const command = app.add_subcommand("login", "Holds this machine's login to a shared folder");
    command->add_option("FOLDER", given->folder, "shared folder")->required();
    command->add_option("--seconds", given->seconds, "how long (default: until it is interrupted)")
        ->check(numberWithin(0.001, secondsMax));
    addHelp(
        *command,
        {.notes =
             "The login is a file in the folder, named after this machine and ending in .cli. It is held "
             "while the command runs and removed when it ends, also by SIGINT or SIGTERM. Other files of "
             "that ending tell who else is logged in.",
         .keys =
             "state (logged in, then logged out), machine, file (the lock file), others (names of machines); "
             "one object at the start and one at the end",
         .done = "logged in until the end",
         .no = "another login of this machine to the folder is running",
         .example = "fsys login /net/projects --seconds 60"});
    command->callback(
        [&options, &action, given] { action = [&options, given] { return login(options, *given); }; });
}

void addLogoutCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto folder = std::make_shared<std::string>();
    CLI::App* const command =
        app.add_subcommand("logout", "Removes a login of this machine that a crash left behind");
    command->add_option("FOLDER", *folder, "shared folder (default: that of this user's last login)");
    addHelp(
        *command,
        {.notes =
             "A login ends with the command that holds it: interrupt that one. This removes the lock file "
             "of this machine when no running login holds it.",
         .keys =
             "state (logged out), machine, file (the lock file that was removed), others (names of machines)",
         .done = "the file is removed",
         .no = "this machine is not logged in, or its login is running",
         .example = "fsys logout /net/projects"});
    command->callback(
        [&options, &action, folder] { action = [&options, folder] { return logout(options, *folder); }; });
}
