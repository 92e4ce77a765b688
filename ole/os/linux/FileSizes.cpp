#include "os/linux/FileSizes.h"

#include "os/linux/ThreadName.h"

#include <sys/stat.h>

#include <exception>

namespace os {

namespace {

std::uint64_t sizeOfRegular(int folder, const char* name) noexcept
{
    struct stat info = {};
    if (::fstatat(folder, name, &info, 0) != 0 || !S_ISREG(info.st_mode))
        return NameBatch::noFile;
    return static_cast<std::uint64_t>(info.st_size);
}

}  // namespace

void FileSizes::add(NameBatch batch)
{
    names_ += batch.names.size();
    {
        const std::lock_guard hold(lock_);
        batches_.push_back(std::move(batch));
    }
    changed_.notify_one();
    if (names_ > namesAloneMax && !triedToStart_)
        startHelper();
}

void FileSizes::startHelper()
{
    triedToStart_ = true;
    try {
        helper_ = std::thread([this] { help(); });
    } catch (const std::exception&) {  // no thread or no memory for one: finish() asks alone
    }
}

void FileSizes::help()
{
    prepareHelperThread("fsys list");
    while (NameBatch* const batch = take())
        askFor(*batch, Progress::Part::helper);
}

void FileSizes::finish()
{
    {
        const std::lock_guard hold(lock_);
        isComplete_ = true;
    }
    changed_.notify_one();
    while (NameBatch* const batch = take())
        askFor(*batch, Progress::Part::caller);
    if (helper_.joinable())
        helper_.join();
}

void FileSizes::stop()
{
    {
        const std::lock_guard hold(lock_);
        isComplete_ = true;
        taken_ = batches_.size();
    }
    changed_.notify_one();
    if (helper_.joinable())
        helper_.join();
}

NameBatch* FileSizes::take()
{
    std::unique_lock held(lock_);
    changed_.wait(held, [this] { return taken_ < batches_.size() || isComplete_; });
    return taken_ < batches_.size() ? &batches_[taken_++] : nullptr;
}

void FileSizes::askFor(NameBatch& batch, Progress::Part part) noexcept
{
    for (NameBatch::Name& name : batch.names) {
        name.size = sizeOfRegular(folder_, &batch.text[name.begin]);
        progress_.step(part);
    }
}

}  // namespace os
