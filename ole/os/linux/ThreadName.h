#pragma once

// Names the calling thread for debuggers and process listings; the kernel keeps 15 bytes.
void nameThisThread(const char* name);

// The same for a thread that makes system calls for others, with all signals blocked: the application's
// handlers belong on its own threads.
void prepareHelperThread(const char* name);
