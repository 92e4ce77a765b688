#include "os/testing/StopTest.h"

#include <cstdio>
#include <cstdlib>

namespace fake {

void stopTest(const char* why)
{
    std::fflush(stdout);
    std::fprintf(stderr, "fake platform: %s\n", why);
    std::abort();
}

}  // namespace fake
