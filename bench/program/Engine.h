#pragma once

#include "Qz/LightweightString.h"
#include "Work.h"
#include "fsys/FsysEntry.h"
#include "os/testing/ForwardingOS.h"

#include <memory>
#include <string>

// Engine: the I/O engine from construction to destruction.
//
// Cache:      the engine reads local files past the page cache and buffers those of network drives. A run
//             on the warm or cold cache takes the hint "unbuffered" off the open mode, which is all that
//             tells such a drive's file from a local one below the engine.
// Threads:    one.
class Engine
{
public:
    explicit Engine(const Work& work);
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

private:
    class BufferedFiles;

    std::unique_ptr<BufferedFiles> files_;
    std::unique_ptr<ForwardingOS> platform_;
};

// Opens a file with the engine; throws when that fails.
[[nodiscard]] FsysFile* openWithEngine(const std::string& path, unsigned flags, const Work& work);
