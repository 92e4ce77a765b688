#include "os/linux/BackendSelect.h"

#include "os/BackendChoice.h"
#include "os/linux/DebugLine.h"
#include "os/linux/ThreadPoolBackend.h"
#include "os/linux/UringBackend.h"
#include "os/linux/UringRing.h"

#include <cstdlib>
#include <string_view>
#include <system_error>

namespace {

constexpr const char* variable = "FSYS_IO_BACKEND";

int tryRing()
{
    constexpr unsigned entries = 8;
    UringRing ring;
    if (const int error = ring.build(entries, entries))
        return error;
    return ring.sendTrial();
}

std::string reasonOf(int error) { return std::generic_category().message(error); }

BackendChoice chooseWithoutWish(int ringError)
{
    if (ringError == 0)
        return {IoBackend::uring, "asynchronous transfers: io_uring"};
    return {IoBackend::threads,
            "asynchronous transfers: thread pool (io_uring cannot be used: " + reasonOf(ringError) + ")"};
}

}  // namespace

BackendChoice chooseBackend(const char* wish, int ringError)
{
    const std::string_view name = wish ? wish : "";
    if (name.empty())
        return chooseWithoutWish(ringError);
    const std::string source = " (" + std::string(variable) + "=" + std::string(name) + ")";
    if (name == "threads")
        return {IoBackend::threads, "asynchronous transfers: thread pool" + source};
    BackendChoice choice = chooseWithoutWish(ringError);
    if (name == "uring")
        choice.text += source;
    else
        choice.text +=
            "; " + std::string(variable) + "=" + std::string(name) + " is ignored: neither uring nor threads";
    return choice;
}

const BackendChoice& backendChoice()
{
    static const BackendChoice* const choice = [] {
        const auto* made = new BackendChoice(chooseBackend(std::getenv(variable), tryRing()));
        os::debugLine(made->text);
        return made;
    }();
    return *choice;
}

namespace os {

const char* backendChoiceText() { return backendChoice().text.c_str(); }

}  // namespace os

std::unique_ptr<TransferBackend> makeBackend(IoBackend wanted, const char* portName, TransferSink& sink)
{
    if (wanted == IoBackend::uring) {
        int error = 0;
        if (std::unique_ptr<TransferBackend> ring = UringBackend::create(sink, &error))
            return ring;
        os::debugLine("port " + std::string(portName) + ": thread pool, no ring: " + reasonOf(error));
    }
    return std::make_unique<ThreadPoolBackend>(portName, sink);
}
