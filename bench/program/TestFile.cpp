#include "TestFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace {

constexpr std::size_t sectorBytes = 512;
constexpr std::size_t pieceBytes = std::size_t{4} << 20;
constexpr std::size_t hugePageBytes = std::size_t{2} << 20;

std::size_t roundUp(std::size_t value, std::size_t unit) { return (value + unit - 1) / unit * unit; }

void readAll(int fd)
{
    const Buffer buffer(pieceBytes);
    while (::read(fd, buffer.data(), buffer.size()) > 0) {
    }
}

}  // namespace

Descriptor::~Descriptor()
{
    if (fd_ >= 0)
        ::close(fd_);
}

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}

int Descriptor::release() { return std::exchange(fd_, -1); }

void require(bool succeeded, const std::string& what)
{
    if (!succeeded)
        throw std::system_error(errno, std::generic_category(), what);
}

Descriptor openForReading(const std::string& path, Mode mode)
{
    const int unbuffered = mode == Mode::unbuffered ? O_DIRECT : 0;
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | unbuffered));
    require(file.get() >= 0, "open " + path);
    return file;
}

Descriptor openForWriting(const std::string& path, bool unbuffered)
{
    Descriptor file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | (unbuffered ? O_DIRECT : 0), 0644));
    require(file.get() >= 0, "open " + path);
    return file;
}

std::uint64_t sizeOf(const std::string& path)
{
    struct stat status = {};
    require(::stat(path.c_str(), &status) == 0, "stat " + path);
    return static_cast<std::uint64_t>(status.st_size);
}

void prepareCache(const Work& work)
{
    for (const std::string& path : work.paths) {
        const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        require(file.get() >= 0, "open " + path);
        if (work.mode == Mode::warm) {
            readAll(file.get());
        } else {
            ::fdatasync(file.get());
            require(::posix_fadvise(file.get(), 0, 0, POSIX_FADV_DONTNEED) == 0, "drop the cache of " + path);
        }
    }
}

void stamp(unsigned char* data, std::size_t bytes, std::uint64_t position)
{
    for (std::size_t at = 0; at + sizeof position <= bytes; at += sectorBytes) {
        const std::uint64_t own = position + at;
        std::memcpy(data + at, &own, sizeof own);
    }
}

void makeTestFile(const std::string& path, std::uint64_t bytes)
{
    const Descriptor file = openForWriting(path, true);
    const Buffer buffer(pieceBytes);
    std::memset(buffer.data(), 0x5A, buffer.size());
    for (std::uint64_t at = 0; at < bytes; at += pieceBytes) {
        stamp(buffer.data(), buffer.size(), at);
        const std::size_t piece = static_cast<std::size_t>(std::min<std::uint64_t>(pieceBytes, bytes - at));
        require(::pwrite(file.get(), buffer.data(), roundUp(piece, 4096), static_cast<off_t>(at)) > 0,
                "write " + path);
    }
    require(::ftruncate(file.get(), static_cast<off_t>(bytes)) == 0, "cut " + path);
    require(::fdatasync(file.get()) == 0, "flush " + path);
}

Buffer::Buffer(std::size_t bytes, bool huge)
    : data_(nullptr), bytes_(roundUp(bytes, huge ? hugePageBytes : 4096))
{
    constexpr int kind = MAP_PRIVATE | MAP_ANONYMOUS;
    constexpr int access = PROT_READ | PROT_WRITE;
    void* memory =
        huge ? ::mmap(nullptr, bytes_, access, kind | MAP_HUGETLB | MAP_POPULATE, -1, 0) : MAP_FAILED;
    if (memory == MAP_FAILED)
        memory = ::mmap(nullptr, bytes_, access, kind | MAP_POPULATE, -1, 0);
    require(memory != MAP_FAILED, "map memory");
    data_ = static_cast<unsigned char*>(memory);
}

Buffer::~Buffer() { ::munmap(data_, bytes_); }
