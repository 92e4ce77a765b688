#pragma once

class PortState;

// SubmissionHold: what a SubmissionBatch keeps for its thread: the ports that have transfers lying ready.
class SubmissionHold
{
public:
    // True when the thread is in a batch, and the port's transfers may lie until its end.
    static bool holdsFor(PortState* port);
    // Hands on what lies ready; the batch goes on.
    static void releaseOnThisThread();
};
