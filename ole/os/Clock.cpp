#include "os/Clock.h"

#include "os/OS.h"

std::uint32_t service_get_msecs() { return OS()->getClock()->msecs(); }

double service_get_msecs_precise() { return OS()->getClock()->msecsPrecise(); }

double now() { return service_get_msecs_precise(); }
