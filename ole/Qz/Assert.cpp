#include "Qz/Assert.h"

#include <cstdio>

namespace Qz {

void assertionFailed(const char* condition, const char* place)
{
    // One call: lines of different threads do not mix.
    std::printf("assertion failed %s at %s\n", condition, place);
    std::fflush(stdout);
}

}  // namespace Qz
