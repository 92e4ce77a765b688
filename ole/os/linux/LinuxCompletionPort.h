#pragma once

#include "Qz/Ptr.h"
#include "os/CompletionPortHandler.h"
#include "os/linux/BackendSelect.h"

// A port whose transfers run on the backend that this process has chosen. The arguments behind command
// are those of CompletionPortHandler.
[[nodiscard]] Qz::Ptr<iCompletionPort> createLinuxCompletionPort(const char* name,
                                                                 const IOCompletionCommand& command,
                                                                 int minThreads, int maxThreads,
                                                                 int concurrency, int priority);

// The same on a given backend; a ring that cannot be built gives way to the pool.
[[nodiscard]] Qz::Ptr<iCompletionPort> createLinuxCompletionPortOn(IoBackend backend, const char* name,
                                                                   const IOCompletionCommand& command,
                                                                   int minThreads);
