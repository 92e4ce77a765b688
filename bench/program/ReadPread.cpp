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

// What one thread reads into, in turn.
using Buffers = std::vector<std::unique_ptr<Buffer>>;

// Reads until there is nothing left to claim; the number of blocks.
std::uint64_t readLoop(OpenFile& open, const Buffers& buffers, std::size_t block)
{
    std::uint64_t done = 0;
    while (const auto position = open.claims.next()) {
        unsigned char* const buffer = buffers[done % buffers.size()]->data();
        require(::pread(open.file.get(), buffer, block, static_cast<off_t>(*position)) > 0, "pread");
        open.claims.arrived(buffer);
        ++done;
    }
    return done;
}

// One thread for each of the given buffers.
Json readByThreads(const Work& work, const std::vector<Buffers>& buffers)
{
    std::vector<std::unique_ptr<OpenFile>> files;
    for (const std::string& path : work.paths)
        files.push_back(std::make_unique<OpenFile>(path, work));
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
    const auto rehearse = [&](OpenFile& file, const Buffers& own) noexcept {
        readLoop(file, own, work.block);
        together.arrive_and_wait();
    };
    const auto readOn = [&](std::size_t i) {
        OpenFile& file = *files[i % files.size()];
        rehearse(file, buffers[i]);
        done += readLoop(file, buffers[i], work.block);
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

}  // namespace

Json peers::readPread(const Work& work)
{
    std::vector<Buffers> buffers(work.paths.size() * work.depth);
    for (Buffers& own : buffers)
        own.push_back(std::make_unique<Buffer>(work.block));
    return readByThreads(work, buffers);
}

Json peers::readPreadSpread(const Work& work)
{
    constexpr unsigned threads = 2;
    constexpr unsigned finished = 40;  // reads that a file of the engine keeps
    std::vector<Buffers> buffers(threads);
    for (std::size_t i = 0; i < work.paths.size() * (work.depth + finished); ++i)
        buffers[i % threads].push_back(std::make_unique<Buffer>(work.block, true));
    return readByThreads(work, buffers);
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
