#pragma once

#include "os/Export.h"

namespace os {

// BusyWait: low latency for those who ask for it.
//
// A thread that sleeps needs some microseconds to run again, twice or three times per transfer. With a busy
// wait the threads that carry transfers go on looking for so long after the last piece of work before they
// sleep; while nothing goes on they sleep as ever. It costs a processor per looking thread for that time, and
// throughput where processors are few. In force on the ring backend.
// Threads:    any; takes effect with the next wait.
// Units:      microseconds; 0, as at first, for none.

// Sets the time of looking, for all threads of the process.
OS_API void setBusyWait(unsigned microseconds);
// What is set, in microseconds.
[[nodiscard]] OS_API unsigned busyWait();

}  // namespace os
