#include "os/testing/FaultyOS.h"

#include "os/LastError.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <utility>

namespace {

using fake::Effect;
using fake::Fault;
using fake::Op;
using Path = iFileManager::Path;

constexpr unsigned dropDelayMs = 10'000;

// The plan, and how fast time goes.
struct Shared
{
    iOperatingSystem& target;
    unsigned speed;
    fake::FaultPlan plan{};
    std::atomic<std::size_t> reported{0};

    [[nodiscard]] unsigned scaled(unsigned ms) const { return ms == 0 ? 0 : std::max(1U, ms / speed); }
    // The fault that makes this call fail or stop short; a delay has passed on return.
    [[nodiscard]] std::optional<Fault> meet(Op op, const Path& path = {})
    {
        std::optional<Fault> fault = plan.check(op, path);
        if (!fault || fault->effect != Effect::delay)
            return fault;
        target.getClock()->sleep(scaled(fault->delayMs));
        return {};
    }
    // True when the call fails.
    [[nodiscard]] bool fails(Op op, const Path& path = {})
    {
        const std::optional<Fault> fault = meet(op, path);
        if (fault)
            setLastError(fault->code);
        return fault.has_value();
    }
};

class FaultyFile : public ForwardingFile
{
public:
    FaultyFile(Shared& shared, const Qz::Ptr<iFile>& target, Path path)
        : ForwardingFile(target), shared_(shared), path_(std::move(path))
    {}

    bool read(std::uint64_t position, void* buffer, std::size_t count, std::size_t* done) override
    {
        const std::optional<Fault> fault = shared_.meet(Op::read, path_);
        if (!fault)
            return ForwardingFile::read(position, buffer, count, done);
        std::size_t moved = 0;
        const bool any = fault->bytes != 0 &&
                         ForwardingFile::read(position, buffer, std::min(count, fault->bytes), &moved);
        return end(*fault, any && fault->effect == Effect::shorten, moved, done);
    }
    bool write(std::uint64_t position, const void* buffer, std::size_t count, std::size_t* done) override
    {
        const std::optional<Fault> fault = shared_.meet(Op::write, path_);
        if (!fault)
            return ForwardingFile::write(position, buffer, count, done);
        std::size_t moved = 0;
        if (fault->bytes != 0)
            ForwardingFile::write(position, buffer, std::min(count, fault->bytes), &moved);
        return end(*fault, false, moved, done);
    }
    bool getInfo(FILE_INFO* info) override
    {
        return !shared_.fails(Op::getInfo, path_) && ForwardingFile::getInfo(info);
    }
    std::uint64_t getSize() override
    {
        return shared_.fails(Op::getSize, path_) ? 0 : ForwardingFile::getSize();
    }
    bool flush() override { return !shared_.fails(Op::flush, path_) && ForwardingFile::flush(); }
    bool setSize(std::uint64_t bytes) override
    {
        return !shared_.fails(Op::setSize, path_) && ForwardingFile::setSize(bytes);
    }
    bool getWrittenSize(std::uint64_t* bytes) override
    {
        return !shared_.fails(Op::getWrittenSize, path_) && ForwardingFile::getWrittenSize(bytes);
    }
    bool claim() override { return !shared_.fails(Op::claim, path_) && ForwardingFile::claim(); }
    bool asyncRead(std::uint64_t position, void* buffer, std::size_t count,
                   const Qz::Ptr<iAsyncContext>& context) override
    {
        return !shared_.fails(Op::asyncRead, path_) &&
               ForwardingFile::asyncRead(position, buffer, count, context);
    }
    bool asyncWrite(std::uint64_t position, const void* buffer, std::size_t count,
                    const Qz::Ptr<iAsyncContext>& context) override
    {
        return !shared_.fails(Op::asyncWrite, path_) &&
               ForwardingFile::asyncWrite(position, buffer, count, context);
    }

private:
    static bool end(const Fault& fault, bool succeeded, std::size_t moved, std::size_t* done)
    {
        if (done)
            *done = moved;
        if (!succeeded)
            setLastError(fault.code);
        return succeeded;
    }

    Shared& shared_;
    const Path path_;
};

class FaultyFiles : public ForwardingFileManager
{
public:
    explicit FaultyFiles(Shared& shared)
        : ForwardingFileManager(*shared.target.getFileManager()), shared_(shared)
    {}

    Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                        unsigned mode) override
    {
        const std::optional<Fault> fault = shared_.meet(Op::open, path);
        if (fault && !fault->closedHandle) {
            setLastError(fault->code);
            return {};
        }
        const Qz::Ptr<iFile> file = ForwardingFileManager::open(path, access, creation, share, mode);
        if (!file)
            return file;
        if (fault) {
            file->close();
            setLastError(fault->code);
        }
        return Qz::Ptr<iFile>(new FaultyFile(shared_, file, path));
    }
    bool isOpenedDirectly(const Path& path) override
    {
        return !shared_.fails(Op::isOpenedDirectly, path) && ForwardingFileManager::isOpenedDirectly(path);
    }
    std::uint64_t getFileSize(const Path& path) override
    {
        return shared_.fails(Op::getFileSize, path) ? 0 : ForwardingFileManager::getFileSize(path);
    }
    bool fileExists(const Path& path) override
    {
        return !shared_.fails(Op::fileExists, path) && ForwardingFileManager::fileExists(path);
    }
    bool deleteFile(const Path& path) override
    {
        return !shared_.fails(Op::deleteFile, path) && ForwardingFileManager::deleteFile(path);
    }
    bool renameFile(const Path& from, const Path& to) override
    {
        return !shared_.fails(Op::renameFile, from) && ForwardingFileManager::renameFile(from, to);
    }
    bool readWholeFile(const Path& path, std::size_t limit, std::string& contents) override
    {
        contents.clear();
        return !shared_.fails(Op::readWholeFile, path) &&
               ForwardingFileManager::readWholeFile(path, limit, contents);
    }
    bool replaceFile(const Path& path, const std::string& contents) override
    {
        return !shared_.fails(Op::replaceFile, path) && ForwardingFileManager::replaceFile(path, contents);
    }
    bool directoryExists(const Path& path) override
    {
        return !shared_.fails(Op::directoryExists, path) && ForwardingFileManager::directoryExists(path);
    }
    bool createDirectory(const Path& path) override
    {
        return !shared_.fails(Op::createDirectory, path) && ForwardingFileManager::createDirectory(path);
    }
    bool isWritable(const Path& path) override
    {
        return !shared_.fails(Op::isWritable, path) && ForwardingFileManager::isWritable(path);
    }
    bool listDirectory(const Path& pattern, std::vector<DirectoryItem>& items) override
    {
        items.clear();
        return !shared_.fails(Op::listDirectory, pattern) &&
               ForwardingFileManager::listDirectory(pattern, items);
    }
    bool listFiles(const Path& pattern, FolderListing& files) override
    {
        files.clear();
        return !shared_.fails(Op::listDirectory, pattern) && ForwardingFileManager::listFiles(pattern, files);
    }
    bool listFilesWithPrefix(const Path& folder, const Path& prefix,
                             std::vector<DirectoryItem>& items) override
    {
        items.clear();
        return !shared_.fails(Op::listFilesWithPrefix, folder) &&
               ForwardingFileManager::listFilesWithPrefix(folder, prefix, items);
    }
    bool deleteTree(const Path& path) override
    {
        return !shared_.fails(Op::deleteTree, path) && ForwardingFileManager::deleteTree(path);
    }
    Path resolvePath(const Path& path) override
    {
        return shared_.fails(Op::resolvePath, path) ? path : ForwardingFileManager::resolvePath(path);
    }
    Path getUNCName(const Path& path) override
    {
        return shared_.fails(Op::getUNCName, path) ? Path() : ForwardingFileManager::getUNCName(path);
    }
    std::vector<Qz::Ptr<iDiskDrive>> listDisks(unsigned flag) override
    {
        return shared_.fails(Op::listDisks) ? std::vector<Qz::Ptr<iDiskDrive>>()
                                            : ForwardingFileManager::listDisks(flag);
    }
    void reportError(const Path& path, unsigned code) override
    {
        ++shared_.reported;
        ForwardingFileManager::reportError(path, code);
    }
    Qz::Ptr<iDiskDrive> getDriveForPath(const Path& path) override
    {
        return shared_.fails(Op::getDriveForPath, path) ? Qz::Ptr<iDiskDrive>()
                                                        : ForwardingFileManager::getDriveForPath(path);
    }

private:
    Shared& shared_;
};

class FaultyPages : public ForwardingPageMemory
{
public:
    explicit FaultyPages(Shared& shared)
        : ForwardingPageMemory(*shared.target.getPageMemory()), shared_(shared)
    {}
    void* allocate(void* address, std::size_t size, unsigned type, unsigned protection) override
    {
        return shared_.fails(Op::allocatePages)
                   ? nullptr
                   : ForwardingPageMemory::allocate(address, size, type, protection);
    }

private:
    Shared& shared_;
};

class FastClock : public ForwardingClock
{
public:
    explicit FastClock(Shared& shared) : ForwardingClock(*shared.target.getClock()), shared_(shared) {}
    void sleep(unsigned milliseconds) override { ForwardingClock::sleep(shared_.scaled(milliseconds)); }

private:
    Shared& shared_;
};

class FastEvent : public iThreadEvent
{
public:
    FastEvent(Shared& shared, Qz::Ptr<iThreadEvent> target) : shared_(shared), target_(std::move(target)) {}
    // A waiter may drop this object as soon as it wakes.
    void set() override
    {
        const Qz::Ptr<iThreadEvent> target = target_;
        target->set();
    }
    void reset() override { target_->reset(); }
    void wait() override { target_->wait(); }
    bool wait(unsigned timeoutMs) override { return target_->wait(shared_.scaled(timeoutMs)); }

private:
    Shared& shared_;
    const Qz::Ptr<iThreadEvent> target_;
};

class FaultyThreads : public ForwardingThreadServices
{
public:
    explicit FaultyThreads(Shared& shared)
        : ForwardingThreadServices(*shared.target.getThreadServices()), shared_(shared)
    {}
    Qz::Ptr<iThreadEvent> createEvent(unsigned manualReset, unsigned signalled, const char* name) override
    {
        return Qz::Ptr<iThreadEvent>(
            new FastEvent(shared_, ForwardingThreadServices::createEvent(manualReset, signalled, name)));
    }
    unsigned createThread(Body body, const char* name, unsigned stackSize, void* argument, int priority,
                          unsigned flags) override
    {
        return shared_.fails(Op::createThread)
                   ? 0
                   : ForwardingThreadServices::createThread(body, name, stackSize, argument, priority, flags);
    }

private:
    Shared& shared_;
};

// Stands between a port and its command.
class FaultyReceiver : public QzDC::Receiver<IOCompletionCommand>
{
public:
    FaultyReceiver(Shared& shared, const IOCompletionCommand& command) : shared_(shared), command_(command) {}

    int executeCommand(IOCompletionCommand&, CompletionPortHandlerCallbackContext& context) override
    {
        if (const auto late = shared_.plan.checkAccepted({}))
            shared_.target.getClock()->sleep(
                shared_.scaled(late->effect == Effect::drop ? dropDelayMs : late->delayMs));
        const auto fault = shared_.plan.check(Op::completion);
        if (!fault || fault->effect != Effect::fail || !context.succeeded()) {
            command_.execute(context);
            return 1;
        }
        setLastError(fault->code);
        CompletionPortHandlerCallbackContext failed(false, 0, context.context());
        command_.execute(failed);
        return 1;
    }

private:
    Shared& shared_;
    IOCompletionCommand command_;
};

class FaultyPort : public iCompletionPort
{
public:
    FaultyPort(Shared& shared, std::unique_ptr<FaultyReceiver> receiver, Qz::Ptr<iCompletionPort> target)
        : shared_(shared), receiver_(std::move(receiver)), target_(std::move(target))
    {}
    bool attach(const Qz::Ptr<iFile>& file) override
    {
        return !shared_.fails(Op::attach) && target_->attach(ForwardingFile::innermost(file));
    }
    void shutDown() override { target_->shutDown(); }

private:
    Shared& shared_;
    const std::unique_ptr<FaultyReceiver> receiver_;  // goes after the port
    const Qz::Ptr<iCompletionPort> target_;
};

}  // namespace

struct FaultyOS::Parts
{
    Shared shared;
    FaultyFiles files{shared};
    FaultyPages pages{shared};
    FastClock clock{shared};
    FaultyThreads threads{shared};
};

FaultyOS::FaultyOS(iOperatingSystem& target, unsigned speed)
    : ForwardingOS(target), parts_(new Parts{{target, std::max(1U, speed)}})
{
    use(parts_->files);
    use(parts_->pages);
    use(parts_->clock);
    use(parts_->threads);
}

FaultyOS::~FaultyOS() = default;

fake::FaultPlan& FaultyOS::faults() { return parts_->shared.plan; }

std::size_t FaultyOS::reported() const { return parts_->shared.reported; }

Qz::Ptr<iCompletionPort> FaultyOS::createCompletionPort(const char* name, const IOCompletionCommand& command,
                                                        int minThreads, int maxThreads, int concurrency,
                                                        int priority)
{
    Shared& shared = parts_->shared;
    if (shared.fails(Op::createPort))
        return {};
    auto receiver = std::make_unique<FaultyReceiver>(shared, command);
    const Qz::Ptr<iCompletionPort> port = target().createCompletionPort(
        name, IOCompletionCommand(receiver.get()), minThreads, maxThreads, concurrency, priority);
    return port ? Qz::Ptr<iCompletionPort>(new FaultyPort(shared, std::move(receiver), port)) : port;
}
