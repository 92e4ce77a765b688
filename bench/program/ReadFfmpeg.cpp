// FFmpeg's file protocol through its buffered reader, as a demuxer uses it: one thread, one read at a time.

#include "Claims.h"
#include "Peers.h"
#include "TestFile.h"

extern "C" {
#include <libavformat/avio.h>
}

#include <cstdio>
#include <stdexcept>

Json peers::readFfmpeg(const Work& work)
{
    AVIOContext* context = nullptr;
    if (avio_open(&context, ("file:" + work.paths.at(0)).c_str(), AVIO_FLAG_READ) < 0)
        throw std::runtime_error("avio_open");
    const Buffer buffer(work.block);
    Claims claims(work, sizeOf(work.paths.at(0)));
    std::uint64_t done = 0;
    std::uint64_t at = 0;
    bool failed = false;
    const auto readAll = [&] {
        done = 0;
        while (const auto position = claims.next()) {
            if (*position != at)
                failed |= avio_seek(context, static_cast<std::int64_t>(*position), SEEK_SET) < 0;
            failed |= avio_read(context, buffer.data(), static_cast<int>(work.block)) !=
                      static_cast<int>(work.block);
            claims.arrived(buffer.data());
            at = *position + work.block;
            ++done;
        }
    };
    claims.rehearse();
    readAll();
    Meter meter;
    meter.start();
    claims.begin();
    readAll();
    meter.stop();
    avio_close(context);
    if (failed || !claims.allCame())
        throw std::runtime_error("a read failed or brought other bytes");
    return meter.report(done, done * work.block);
}
