#pragma once

#include "Qz/Ptr.h"
#include "Qz/iMemHolder.h"
#include "Qz/iObject.h"

// What a completion function is told about its part of a transfer. Callers compare the numbers.
enum RequestStatus : unsigned {
    eRequestSuccess = 2,  // done; a read may have met the end of the file
    eRequestError = 3,    // FsysGetLastError tells the code; the buffer is empty
};

// Called when an asynchronous read or write has ended: with the caller's context, the data, and how it
// went.
//
// Data:       for a read, a view of as many bytes as were asked for, which keeps its memory alive as long as
//             it is referred to; where the file ended inside the range the rest of the view is zero. For a
//             write, the holder that was given; that of a neighbour when both were merged; the write cache,
//             which tells no size, when the write overflowed it. Empty after an error, and for a write
//             that was found slow.
// Threads:    a completion-port thread; the calling thread for a read answered from finished reads and
//             for a write gathered in the write cache; the polling thread, under engine locks, when a
//             transfer could not be started.
// Rules:      does not block for long; takes no lock that is held around engine calls; opens and closes
//             no file; does not end the engine. When it may run on the polling thread it neither writes
//             through the write cache nor calls DirectWrite with synchronous set: both wait for that very
//             thread. The destructor of the context obeys the same rules.
using FsysCompletionFunction = void (*)(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data,
                                        RequestStatus status);
