#include "os/linux/DebugLine.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace os {

void debugLine(const std::string& text)
{
    const char* wanted = std::getenv("FSYS_OS_DEBUG");
    if (wanted && std::string_view(wanted) == "1")
        std::fprintf(stderr, "os: %s\n", text.c_str());
}

}  // namespace os
