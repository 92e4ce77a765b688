#pragma once

#include "os/linux/TransferBackend.h"

#include <memory>
#include <string>

// BackendSelect: which mechanism carries the asynchronous transfers of this process.
//
// A ring is tried by building one and sending a request through it: kernels, containers and sandboxes
// refuse rings at different moments. The environment variable FSYS_IO_BACKEND (uring or threads) goes
// first; a ring that was asked for but cannot be had gives way to the pool.

enum class IoBackend { uring, threads };

struct BackendChoice
{
    IoBackend backend;
    std::string text;  // one line for people: what and why
};

// The rule alone. wish: value of FSYS_IO_BACKEND or null. ringError: errno of the trial, 0 for success.
[[nodiscard]] BackendChoice chooseBackend(const char* wish, int ringError);

// The choice of this process, made at the first call; with FSYS_OS_DEBUG=1 it is told on stderr then.
[[nodiscard]] const BackendChoice& backendChoice();

// A backend for the port of that name; the pool where a ring cannot be built.
[[nodiscard]] std::unique_ptr<TransferBackend> makeBackend(IoBackend wanted, const char* portName,
                                                           TransferSink& sink);
