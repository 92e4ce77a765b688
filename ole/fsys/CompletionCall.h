#pragma once

#include "fsys/CompletionFunction.h"

// Calls fn. What it throws ends here, with a line in the log: the thread is the engine's, and other callers
// wait behind this one.
// Threads:    any.
void callCompletion(FsysCompletionFunction fn, Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data,
                    RequestStatus status) noexcept;
