#include "FileWriter.h"

#include "Answer.h"
#include "Qz/iMemHolder.h"
#include "os/OS.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace {

constexpr std::size_t blockBytes = std::size_t{1} << 20;  // a multiple of every sector size
constexpr unsigned blocksUnderWay = 8;

class Block : public iMemHolder
{
public:
    explicit Block(std::vector<unsigned char> bytes) : bytes_(std::move(bytes)) {}
    [[nodiscard]] unsigned char* getBuffer() const override
    {
        return const_cast<unsigned char*>(bytes_.data());
    }
    [[nodiscard]] unsigned getSize() const override { return static_cast<unsigned>(bytes_.size()); }
    [[nodiscard]] unsigned getUsed() const override { return getSize(); }
    void setUsed(unsigned /*bytes*/) override {}

private:
    std::vector<unsigned char> bytes_;
};

}  // namespace

struct FileWriter::Pending : public iObject
{
    std::mutex guard;
    std::condition_variable changed;
    unsigned underWay = 0;
    bool failed = false;
};

FileWriter::FileWriter(const LightweightString<wchar_t>& path)
    : path_(path), partialPath_(path + L".partial"), pending_(new Pending)
{
    OS()->getFileManager()->deleteFile(partialPath_);
    if (FsysOpen(&file_, partialPath_, 0, fsysOpenWrite, nullptr) == 1)
        file_->Seek(0, eSeekAbsolute);
}

FileWriter::~FileWriter()
{
    if (!file_)
        return;
    close();
    OS()->getFileManager()->deleteFile(partialPath_);
}

void FileWriter::close() { FsysClose(std::exchange(file_, nullptr), nullptr); }

void FileWriter::completed(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& /*data*/, RequestStatus status)
{
    auto& pending = static_cast<Pending&>(*context);
    const std::lock_guard<std::mutex> hold(pending.guard);
    --pending.underWay;
    pending.failed = pending.failed || status != eRequestSuccess;
    pending.changed.notify_all();
}

bool FileWriter::waitUntilAtMost(unsigned underWay)
{
    std::unique_lock<std::mutex> hold(pending_->guard);
    pending_->changed.wait(hold, [&] { return pending_->underWay <= underWay; });
    return !pending_->failed;
}

bool FileWriter::sendBlock()
{
    if (!waitUntilAtMost(blocksUnderWay - 1))
        return false;
    {
        const std::lock_guard<std::mutex> hold(pending_->guard);
        ++pending_->underWay;
    }
    Qz::Ptr<iMemHolder> data(new Block(std::exchange(rest_, {})));
    Qz::Ptr<iObject> context = pending_;
    if (file_->DirectWrite(data, false, &completed, context, false) == 1)
        return true;
    const std::lock_guard<std::mutex> hold(pending_->guard);
    --pending_->underWay;
    pending_->failed = true;
    return false;
}

bool FileWriter::write(const void* data, std::size_t bytes)
{
    const auto* from = static_cast<const unsigned char*>(data);
    while (bytes != 0) {
        const std::size_t part = std::min(bytes, blockBytes - rest_.size());
        rest_.insert(rest_.end(), from, from + part);
        from += part;
        bytes -= part;
        if (rest_.size() == blockBytes && !sendBlock())
            return false;
    }
    return true;
}

bool FileWriter::finish()
{
    bool good = waitUntilAtMost(0);
    if (good && !rest_.empty())
        good = file_->Write(rest_.data(), static_cast<unsigned>(rest_.size())) == 1;
    close();
    if (good) {
        std::error_code error;
        std::filesystem::rename(utf8(partialPath_), utf8(path_), error);
        good = !error;
    }
    if (!good)
        OS()->getFileManager()->deleteFile(partialPath_);
    return good;
}
