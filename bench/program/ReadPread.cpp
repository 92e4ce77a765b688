// Threads that read with pread, and one that copies out of a mapping.

#include "Claims.h"
#include "Peers.h"
#include "TestFile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace {

struct OpenFile
{
    OpenFile(const std::string& path, const Work& work)
        : file(openForReading(path, work.mode)), claims(work, sizeOf(path))
    {}

    Descriptor file;
    Claims claims;
};

// Reads until there is nothing left to claim; the number of blocks.
std::uint64_t readLoop(OpenFile& open, unsigned char* buffer, std::size_t block)
{
    std::uint64_t done = 0;
    while (const auto position = open.claims.next()) {
        require(::pread(open.file.get(), buffer, block, static_cast<off_t>(*position)) > 0, "pread");
        open.claims.arrived(buffer);
        ++done;
    }
    return done;
}

}  // namespace

Json peers::readPread(const Work& work)
{
    std::vector<std::unique_ptr<OpenFile>> files;
    std::vector<std::unique_ptr<Buffer>> buffers;
    for (const std::string& path : work.paths)
        files.push_back(std::make_unique<OpenFile>(path, work));
    for (std::size_t i = 0; i < files.size() * work.depth; ++i)
        buffers.push_back(std::make_unique<Buffer>(work.block));
    std::atomic<std::uint64_t> done{0};
    Meter meter;
    for (const auto& file : files)
        file->claims.rehearse();
    std::barrier together(static_cast<std::ptrdiff_t>(buffers.size()), [&]() noexcept {
        meter.start();
        for (const auto& file : files)
            file->claims.begin();
    });
    // A failure in the rehearsal ends the program: the others would wait for ever.
    const auto rehearse = [&](OpenFile& file, unsigned char* buffer) noexcept {
        readLoop(file, buffer, work.block);
        together.arrive_and_wait();
    };
    const auto readOn = [&](std::size_t i) {
        OpenFile& file = *files[i % files.size()];
        rehearse(file, buffers[i]->data());
        done += readLoop(file, buffers[i]->data(), work.block);
    };
    {
        std::vector<std::jthread> threads;
        // The only one reads on the calling thread, as a program with one reader would.
        for (std::size_t i = 1; i < buffers.size(); ++i)
            threads.emplace_back([&, i] { readOn(i); });
        readOn(0);
    }
    meter.stop();
    for (const auto& file : files)
        if (!file->claims.allCame())
            throw std::runtime_error("other bytes came than were asked for");
    return meter.report(done, done * work.block);
}

Json peers::readMmap(const Work& work)
{
    const OpenFile open(work.paths.at(0), work);
    Claims claims(work, sizeOf(work.paths.at(0)));
    const std::size_t bytes = sizeOf(work.paths.at(0));
    void* const mapping = ::mmap(nullptr, bytes, PROT_READ, MAP_SHARED, open.file.get(), 0);
    require(mapping != MAP_FAILED, "mmap");
    const Buffer buffer(work.block);
    std::uint64_t done = 0;
    const auto readAll = [&] {
        done = 0;
        while (const auto position = claims.next()) {
            std::memcpy(buffer.data(), static_cast<const unsigned char*>(mapping) + *position, work.block);
            claims.arrived(buffer.data());
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
    ::munmap(mapping, bytes);
    if (!claims.allCame())
        throw std::runtime_error("other bytes came than were asked for");
    return meter.report(done, done * work.block);
}
