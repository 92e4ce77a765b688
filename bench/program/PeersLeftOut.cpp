// What stands for the peers that other projects' libraries are needed for, in a program built without them.

#include "FrameSource.h"
#include "Peers.h"

#include <stdexcept>

namespace {

[[noreturn]] void leftOut() { throw std::runtime_error("built without this peer: FSYS_BENCH_PEERS is off"); }

}  // namespace

Json peers::readLibuv(const Work& /*work*/) { leftOut(); }
Json peers::readAsio(const Work& /*work*/) { leftOut(); }
Json peers::readFfmpeg(const Work& /*work*/) { leftOut(); }

std::unique_ptr<FrameSource> makeFfmpegSource(const std::string& /*path*/) { leftOut(); }
