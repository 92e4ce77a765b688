#include "os/linux/DirectoryListing.h"

#include "os/LastError.h"
#include "os/linux/FileSizes.h"
#include "os/linux/NameOrder.h"
#include "os/linux/ScopedFd.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace os {

namespace {

// A read fills this much; a larger one is no faster, and a slow server would show progress more rarely.
constexpr std::size_t readBytes = std::size_t{32} * 1024;

ScopedFd openFolder(const std::string& path)
{
    // O_NONBLOCK keeps the open from waiting when a pipe stands there.
    return ScopedFd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
}

bool mayBeRegular(unsigned char type) { return type == DT_REG || type == DT_LNK || type == DT_UNKNOWN; }

// The wanted names of a folder, on their way into batches.
class NameReader
{
public:
    NameReader(int folder, const NameFilter& isWanted, FileSizes& sizes)
        : folder_(folder), isWanted_(isWanted), sizes_(sizes)
    {}

    // False with errno set when the folder could not be read to its end.
    bool run(Progress& progress)
    {
        for (;;) {
            const ssize_t bytes = ::getdents64(folder_, buffer_, sizeof buffer_);
            progress.step();
            if (bytes <= 0) {
                // A folder that was removed meanwhile has no more files.
                const bool isEnd = bytes == 0 || errno == ENOENT;
                if (isEnd)
                    handOver();
                return isEnd;
            }
            take(static_cast<std::size_t>(bytes));
        }
    }

private:
    void take(std::size_t bytes)
    {
        for (std::size_t at = 0; at < bytes;) {
            unsigned short length = 0;
            std::memcpy(&length, buffer_ + at + offsetof(dirent64, d_reclen), sizeof length);
            const auto type = static_cast<unsigned char>(buffer_[at + offsetof(dirent64, d_type)]);
            const std::string_view name = buffer_ + at + offsetof(dirent64, d_name);
            if (mayBeRegular(type) && (!isWanted_ || isWanted_(name)))
                add(name);
            at += length;
        }
    }

    void add(std::string_view name)
    {
        if (batch_.names.size() == FileSizes::batchNamesMax)
            handOver();
        if (batch_.names.empty())
            batch_.names.reserve(FileSizes::batchNamesMax);
        batch_.names.push_back(
            {static_cast<std::uint32_t>(batch_.text.size()), static_cast<std::uint32_t>(name.size())});
        batch_.text.append(name.data(), name.size() + 1);
    }

    void handOver()
    {
        const std::size_t textBytes = batch_.text.size();
        if (!batch_.names.empty())
            sizes_.add(std::move(batch_));
        batch_ = {};
        batch_.text.reserve(textBytes);  // the next one is likely to be as long
    }

    const int folder_;
    const NameFilter& isWanted_;
    FileSizes& sizes_;
    NameBatch batch_;
    alignas(dirent64) char buffer_[readBytes];
};

}  // namespace

bool listFolder(const std::string& folder, const NameFilter& isWanted, FolderListing& files,
                Progress& progress)
{
    files.clear();
    const ScopedFd open = openFolder(folder);
    if (!open.isOpen()) {
        setLastErrno(errno);
        return false;
    }
    FileSizes sizes(open.get(), progress);
    if (!NameReader(open.get(), isWanted, sizes).run(progress)) {
        setLastErrno(errno);
        return false;
    }
    const NameOrder order(sizes.batches());  // while the helper goes on asking
    sizes.finish();
    order.deliver(files);
    return true;
}

}  // namespace os
