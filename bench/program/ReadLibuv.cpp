// libuv's file reads: its own pool of 4 threads unless UV_THREADPOOL_SIZE says otherwise.

#include "Claims.h"
#include "Peers.h"
#include "TestFile.h"

#include <uv.h>

#include <memory>
#include <stdexcept>

namespace {

struct Run;

struct Request
{
    uv_fs_t request{};
    uv_buf_t span{};
    std::unique_ptr<Buffer> memory;
    Run* run = nullptr;
};

struct Run
{
    Run(const Work& work, const std::string& path)
        : file(openForReading(path, work.mode)), claims(work, sizeOf(path))
    {}

    uv_loop_t loop{};
    Descriptor file;
    Claims claims;
    std::uint64_t done = 0;
    bool failed = false;
};

void onRead(uv_fs_t* ended);

void readNext(Request& request)
{
    Run& run = *request.run;
    if (const auto position = run.claims.next())
        uv_fs_read(&run.loop, &request.request, run.file.get(), &request.span, 1,
                   static_cast<std::int64_t>(*position), &onRead);
}

void onRead(uv_fs_t* ended)
{
    auto& request = *static_cast<Request*>(ended->data);
    request.run->failed |= ended->result <= 0;
    request.run->claims.arrived(request.memory->data());
    ++request.run->done;
    uv_fs_req_cleanup(ended);
    readNext(request);
}

}  // namespace

Json peers::readLibuv(const Work& work)
{
    Run run(work, work.paths.at(0));
    uv_loop_init(&run.loop);
    std::vector<Request> requests(work.depth);
    for (Request& request : requests) {
        request.memory = std::make_unique<Buffer>(work.block);
        request.span = uv_buf_init(reinterpret_cast<char*>(request.memory->data()), work.block);
        request.request.data = &request;
        request.run = &run;
    }
    const auto readAll = [&] {
        run.done = 0;
        for (Request& request : requests)
            readNext(request);
        uv_run(&run.loop, UV_RUN_DEFAULT);
    };
    run.claims.rehearse();
    readAll();
    Meter meter;
    meter.start();
    run.claims.begin();
    readAll();
    meter.stop();
    uv_loop_close(&run.loop);
    if (run.failed || !run.claims.allCame())
        throw std::runtime_error("a read failed or brought other bytes");
    return meter.report(run.done, run.done * work.block);
}
