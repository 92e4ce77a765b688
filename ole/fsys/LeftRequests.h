#pragma once

class FileRequest;

// LeftRequests: the requests that were destroyed while the platform had their transfer.
//
// Their completion frees them. But where a server does not answer the platform gives up their port when the
// engine ends, and reports nothing any more; the memory is the transfer's until the server has answered. The
// platform lets go of a transfer's context at its end, whatever became of the port: so the next start or end
// of the engine finds those whose transfer has ended since, and frees them.
//
// Threads:    any.
// Locks:      one of its own, held for a few instructions and never around a call into the engine, so that
//             completions may take it.
// Ownership:  the requests are linked through themselves; nothing is allocated.
class LeftRequests
{
public:
    // Before request is marked as destroyed.
    static void add(FileRequest* request);
    // Before it is deleted. Does nothing for one that was not added.
    static void remove(FileRequest* request);
    // Frees the requests whose transfer has ended. REQUIRES: no engine.
    static void releaseEnded();
    // How many there are; for tests.
    [[nodiscard]] static unsigned count();

private:
    // One whose transfer has ended, not in the list any more; null when there is none.
    [[nodiscard]] static FileRequest* takeEnded();
};
