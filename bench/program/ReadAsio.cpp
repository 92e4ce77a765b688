// Boost.Asio's file object on its io_uring reactor: one thread runs the context.
// Debian 12's default Boost, 1.74, has no file objects; 1.81, which Debian 12 also carries, has them.

#include "Claims.h"
#include "Peers.h"
#include "TestFile.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/random_access_file.hpp>

#include <memory>
#include <stdexcept>

#ifndef BOOST_ASIO_HAS_FILE
#error "this Boost has no file objects"
#endif

namespace {

struct Run
{
    Run(const Work& work, const std::string& path)
        : file(context, openForReading(path, work.mode).release()),
          claims(work, sizeOf(path)),
          block(work.block)
    {}

    void readNext(unsigned char* buffer)
    {
        const auto position = claims.next();
        if (!position)
            return;
        file.async_read_some_at(*position, boost::asio::buffer(buffer, block),
                                [this, buffer](const boost::system::error_code& error, std::size_t bytes) {
                                    failed |= error || bytes == 0;
                                    claims.arrived(buffer);
                                    ++done;
                                    readNext(buffer);
                                });
    }

    boost::asio::io_context context{1};
    boost::asio::random_access_file file;
    Claims claims;
    const std::size_t block;
    std::uint64_t done = 0;
    bool failed = false;
};

}  // namespace

Json peers::readAsio(const Work& work)
{
    Run run(work, work.paths.at(0));
    std::vector<std::unique_ptr<Buffer>> buffers;
    for (unsigned i = 0; i < work.depth; ++i)
        buffers.push_back(std::make_unique<Buffer>(work.block));
    const auto readAll = [&] {
        run.done = 0;
        for (const auto& buffer : buffers)
            run.readNext(buffer->data());
        run.context.restart();
        run.context.run();
    };
    run.claims.rehearse();
    readAll();
    Meter meter;
    meter.start();
    run.claims.begin();
    readAll();
    meter.stop();
    if (run.failed || !run.claims.allCame())
        throw std::runtime_error("a read failed or brought other bytes");
    return meter.report(run.done, run.done * work.block);
}
