// POSIX asynchronous I/O of the C library, which reads one file with one thread of its own.

#include "Claims.h"
#include "Peers.h"
#include "TestFile.h"

#include <aio.h>

#include <memory>
#include <stdexcept>

namespace {

struct Request
{
    std::unique_ptr<Buffer> memory;
    std::unique_ptr<aiocb> control = std::make_unique<aiocb>();
};

bool readNext(Request& request, Claims& claims, int fd, std::size_t block)
{
    const auto position = claims.next();
    if (!position)
        return false;
    *request.control = {};
    request.control->aio_fildes = fd;
    request.control->aio_buf = request.memory->data();
    request.control->aio_nbytes = block;
    request.control->aio_offset = static_cast<off_t>(*position);
    request.control->aio_sigevent.sigev_notify = SIGEV_NONE;
    require(aio_read(request.control.get()) == 0, "aio_read");
    return true;
}

void awaitEnd(const Request& request)
{
    const aiocb* const list[] = {request.control.get()};
    while (aio_error(request.control.get()) == EINPROGRESS)
        aio_suspend(list, 1, nullptr);
}

// The number of blocks.
std::uint64_t readAll(std::vector<Request>& requests, Claims& claims, int fd, std::size_t block)
{
    std::uint64_t done = 0;
    std::size_t first = 0;  // the oldest request under way: reads of one file end in order
    std::size_t underWay = 0;
    while (underWay < requests.size() && readNext(requests[underWay], claims, fd, block))
        ++underWay;
    while (underWay > 0) {
        Request& oldest = requests[first];
        awaitEnd(oldest);
        if (aio_return(oldest.control.get()) <= 0)
            throw std::runtime_error("aio_return");
        claims.arrived(oldest.memory->data());
        ++done;
        first = (first + 1) % requests.size();
        if (!readNext(oldest, claims, fd, block))
            --underWay;
    }
    return done;
}

}  // namespace

Json peers::readPosixAio(const Work& work)
{
    const Descriptor file = openForReading(work.paths.at(0), work.mode);
    Claims claims(work, sizeOf(work.paths.at(0)));
    std::vector<Request> requests(work.depth);
    for (Request& request : requests)
        request.memory = std::make_unique<Buffer>(work.block);
    claims.rehearse();
    readAll(requests, claims, file.get(), work.block);
    Meter meter;
    meter.start();
    claims.begin();
    const std::uint64_t done = readAll(requests, claims, file.get(), work.block);
    meter.stop();
    if (!claims.allCame())
        throw std::runtime_error("other bytes came than were asked for");
    return meter.report(done, done * work.block);
}
