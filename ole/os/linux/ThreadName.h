#pragma once

// Names the calling thread for debuggers and process listings; the kernel keeps 15 bytes.
void nameThisThread(const char* name);
