#include "os/LastError.h"

#include <cerrno>
#include <string>
#include <system_error>

namespace {

thread_local unsigned code = 0;  // 0 until the thread's first failure

}  // namespace

unsigned lastError() { return code != 0 ? code : errorFromErrno(EIO); }

void setLastError(unsigned newCode) { code = newCode; }

unsigned setLastErrno(int errorNumber)
{
    code = errorFromErrno(errorNumber);
    return code;
}

unsigned errorFromErrno(int errorNumber)
{
    // The low half is the errno; what does not fit there is none.
    const bool known = errorNumber > 0 && errorNumber < static_cast<int>(platformErrorBase);
    return platformErrorBase + static_cast<unsigned>(known ? errorNumber : EIO);
}

int errnoFromError(unsigned platformCode)
{
    const bool ours = platformCode > platformErrorBase && platformCode < 2 * platformErrorBase;
    return ours ? static_cast<int>(platformCode - platformErrorBase) : 0;
}

LightweightString<char> errorText(unsigned anyCode)
{
    const int errorNumber = errnoFromError(anyCode);
    if (errorNumber == 0)
        return "error " + std::to_string(anyCode);
    return std::generic_category().message(errorNumber);
}
