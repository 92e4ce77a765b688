#include "fsys/NetLogin.h"

#include "Qz/StringHelpers.h"
#include "os/Codes.h"
#include "os/OS.h"

Qz::Ptr<iFile> lockFilehandle;
LightweightString<wchar_t> lockFileName;

LightweightString<wchar_t> getNetLoginLockFileName(const LightweightString<wchar_t>& folder)
{
    iFileManager& files = *OS()->getFileManager();
    const wchar_t separator = files.getPathSeparator();
    LightweightString<wchar_t> result = folder;
    if (!Qz::endsWith(folder, separator, true))
        result += separator;
    return result + files.getMachineName() + L".cli";
}

bool NetLogin(const LightweightString<wchar_t>& folder)
{
    iFileManager& files = *OS()->getFileManager();
    const LightweightString<wchar_t> name = getNetLoginLockFileName(folder);
    lockFilehandle =
        files.open(name, os::accessReadWrite, os::creationOpenOrNewRW, os::shareAll, os::attributeLockFile);
    if (!lockFilehandle || !lockFilehandle->isOpen())
        return false;
    // Deliberate: only now, when the new file is held. After a login that was not ended this gives up
    // the new file, so that one is granted without a lock.
    NetLogout();
    lockFileName = name;
    files.registerForRemoval(lockFileName);
    return true;
}

bool NetLogout()
{
    if (lockFileName.empty())
        return true;
    lockFilehandle = nullptr;
    lockFileName = LightweightString<wchar_t>();
    return true;
}
