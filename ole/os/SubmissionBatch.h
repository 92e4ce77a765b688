#pragma once

#include "os/Export.h"

namespace os {

// SubmissionBatch: transfers that this thread starts during its life go to the system together.
//
// One entry into the kernel for many small transfers costs a fraction of one each. A transfer is accepted
// or refused as ever, and may begin at any moment up to the end of the batch. Batches nest; the outermost
// one counts. Waiting for an event, or shutting a port down, hands on what lies ready.
// REQUIRES: made and destroyed on one thread, which does not wait for its own transfers by other means.
class OS_API SubmissionBatch
{
public:
    // Begins a batch on this thread, or a part of the one that is under way.
    SubmissionBatch();
    // Hands on what lies ready, unless an outer batch goes on.
    ~SubmissionBatch();
    SubmissionBatch(const SubmissionBatch&) = delete;
    SubmissionBatch& operator=(const SubmissionBatch&) = delete;
};

}  // namespace os
