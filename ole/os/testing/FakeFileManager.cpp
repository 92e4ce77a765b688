#include "os/testing/FakeFileManager.h"

#include "Qz/Utf8.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/testing/FakeCore.h"
#include "os/testing/FakeFile.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

using fake::Node;
using fake::Op;
using Guard = std::lock_guard<std::mutex>;
using Path = iFileManager::Path;

class FakeAsyncContext : public iAsyncContext
{
public:
    FakeAsyncContext(std::shared_ptr<FakeCore> core, void* owner)
        : iAsyncContext(owner), core_(std::move(core))
    {
        ++core_->live.contexts;
    }
    ~FakeAsyncContext() override { --core_->live.contexts; }

private:
    std::shared_ptr<FakeCore> core_;
};

void setContents(Node& node, std::string_view contents)
{
    const Guard guard(node.mutex);
    node.bytes = {};
    node.bytes.write(0, contents.data(), contents.size());
}

std::string contentsOf(Node& node)
{
    const Guard guard(node.mutex);
    std::string contents(static_cast<std::size_t>(node.bytes.size()), '\0');
    node.bytes.read(0, contents.data(), contents.size());
    return contents;
}

std::uint64_t sizeOf(Node& node)
{
    const Guard guard(node.mutex);
    return node.bytes.size();
}

}  // namespace

FakeFileManager::FakeFileManager(std::shared_ptr<FakeCore> core) : core_(std::move(core)) {}

void FakeFileManager::note(Op op, const Path& path)
{
    fake::Call call;
    call.op = op;
    call.path = path;
    core_->log.add(call);
}

bool FakeFileManager::canTell(Op op, const Path& path)
{
    fake::Call call;
    call.op = op;
    call.path = path;
    if (const auto fault = core_->fault(op, path))
        call.code = fault->code;
    core_->log.add(call);
    if (call.code != 0)
        setLastError(call.code);
    return call.code == 0;
}

bool FakeFileManager::act(Op op, const Path& path, const std::function<int()>& action)
{
    fake::Call call;
    call.op = op;
    call.path = path;
    if (const auto fault = core_->fault(op, path))
        call.code = fault->code;
    else if (const int error = action())
        call.code = errorFromErrno(error);
    core_->log.add(call);
    if (call.code != 0)
        setLastError(call.code);
    return call.code == 0;
}

// --- files

std::shared_ptr<Node> FakeFileManager::nodeToOpen(const Path& path, unsigned access, unsigned creation,
                                                  int& errorNumber)
{
    fake::FakeTree& tree = core_->tree;
    std::shared_ptr<Node> node = creation == os::creationNew ? nullptr : tree.find(path.view());
    errorNumber = creation > os::creationOpenOrNewRW ? EINVAL : 0;
    if (errorNumber == 0 && !node) {
        errorNumber = creation == os::creationOpen ? ENOENT : tree.make(path.view(), Node::Kind::file, node);
        // Another thread has made it since the look above.
        if (errorNumber == EEXIST && creation != os::creationNew && (node = tree.find(path.view())))
            errorNumber = 0;
    }
    if (errorNumber == 0 && node->kind == Node::Kind::folder)
        errorNumber = EISDIR;
    if (errorNumber == 0 && (access & os::accessWrite) != 0 && !tree.isWritable(path.view()))
        errorNumber = EACCES;
    return errorNumber == 0 ? node : nullptr;
}

Qz::Ptr<iFile> FakeFileManager::makeHandle(const Path& path, unsigned access, unsigned mode,
                                           const std::shared_ptr<Node>& node)
{
    auto file = std::make_shared<fake::OpenFile>();
    file->path = path;
    file->access = access;
    file->mode = mode;
    file->node = node;
    file->open = node != nullptr;
    file->handle = node ? ++handles_ : 0;
    return Qz::Ptr<iFile>(new FakeFile(core_, file));
}

Qz::Ptr<iFile> FakeFileManager::open(const Path& path, unsigned access, unsigned creation, unsigned share,
                                     unsigned mode)
{
    fake::Call call;
    call.op = Op::open;
    call.path = path;
    call.access = access;
    call.creation = creation;
    call.share = share;
    call.mode = mode;
    Qz::Ptr<iFile> handle;
    if (const auto fault = core_->fault(Op::open, path)) {
        call.code = fault->code;
        if (fault->closedHandle)
            handle = makeHandle(path, access, mode, nullptr);
    } else {
        int errorNumber = 0;
        if (const std::shared_ptr<Node> node = nodeToOpen(path, access, creation, errorNumber)) {
            handle = makeHandle(path, access, mode, node);
            call.handle = Qz::dynamicCast<FakeFile>(handle)->state().handle;
        } else {
            call.code = errorFromErrno(errorNumber);
        }
    }
    core_->log.add(call);
    if (call.code != 0)
        setLastError(call.code);
    return handle;
}

bool FakeFileManager::isOpenedDirectly(const Path& path)
{
    if (!canTell(Op::isOpenedDirectly, path))
        return false;
    const std::shared_ptr<Node> node = core_->tree.find(path.view());
    return node && node->kind == Node::Kind::direct;
}

std::uint64_t FakeFileManager::getFileSize(const Path& path)
{
    return canTell(Op::getFileSize, path) ? size(path) : 0;
}

bool FakeFileManager::fileExists(const Path& path) { return canTell(Op::fileExists, path) && has(path); }

bool FakeFileManager::deleteFile(const Path& path)
{
    return act(Op::deleteFile, path, [&] { return core_->tree.removeFile(path.view()); });
}

bool FakeFileManager::renameFile(const Path& from, const Path& to)
{
    return act(Op::renameFile, from, [&] { return core_->tree.rename(from.view(), to.view()); });
}

bool FakeFileManager::readWholeFile(const Path& path, std::size_t limit, std::string& contents)
{
    contents.clear();
    return act(Op::readWholeFile, path, [&] {
        const std::shared_ptr<Node> node = core_->tree.find(path.view());
        if (!node)
            return ENOENT;
        if (node->kind == Node::Kind::folder)
            return EISDIR;
        if (sizeOf(*node) > limit)
            return EFBIG;
        contents = contentsOf(*node);
        return 0;
    });
}

bool FakeFileManager::replaceFile(const Path& path, const std::string& contents)
{
    return act(Op::replaceFile, path, [&] {
        int errorNumber = 0;
        const auto node = nodeToOpen(path, os::accessWrite, os::creationOpenOrNew, errorNumber);
        if (node)
            setContents(*node, contents);
        return errorNumber;
    });
}

// --- folders

bool FakeFileManager::directoryExists(const Path& path)
{
    return canTell(Op::directoryExists, path) && hasFolder(path);
}

bool FakeFileManager::createDirectory(const Path& path)
{
    return act(Op::createDirectory, path, [&] {
        std::shared_ptr<Node> node;
        return core_->tree.make(path.view(), Node::Kind::folder, node);
    });
}

bool FakeFileManager::isWritable(const Path& path)
{
    return canTell(Op::isWritable, path) && core_->tree.isWritable(path.view());
}

bool FakeFileManager::list(Op op, const Path& logged, const Path& folder, std::vector<DirectoryItem>& items,
                           const std::function<bool(std::wstring_view)>& wanted)
{
    items.clear();
    return act(op, logged, [&] {
        return core_->tree.list(folder.view(), [&](const std::wstring& name, std::uint64_t bytes) {
            if (wanted(name))
                items.push_back({LightweightString<wchar_t>(name), bytes});
        });
    });
}

bool FakeFileManager::listDirectory(const Path& pattern, std::vector<DirectoryItem>& items)
{
    const std::size_t slash = pattern.view().find_last_of(L"/\\");
    const std::size_t name = slash == Path::npos ? 0 : slash + 1;
    const std::wstring wildcards(pattern.view().substr(name));
    return list(Op::listDirectory, pattern, pattern.substr(0, name), items,
                [&](std::wstring_view candidate) { return fake::matchesPattern(candidate, wildcards); });
}

bool FakeFileManager::listFiles(const Path& pattern, FolderListing& files)
{
    std::vector<DirectoryItem> items;
    const bool listed = listDirectory(pattern, items);
    files.clear();
    for (const DirectoryItem& item : items)
        files.add(item.name.view(), item.size);
    return listed;
}

bool FakeFileManager::listFilesWithPrefix(const Path& folder, const Path& prefix,
                                          std::vector<DirectoryItem>& items)
{
    return list(Op::listFilesWithPrefix, folder, folder, items,
                [&](std::wstring_view candidate) { return candidate.starts_with(prefix.view()); });
}

bool FakeFileManager::holdsDriveRoot(const Path& path) const
{
    const std::wstring tree = core_->tree.resolve(path.view());
    const Guard guard(mutex_);
    return std::any_of(drives_.begin(), drives_.end(), [&](const Qz::Ptr<FakeDrive>& drive) {
        const std::wstring root = fake::normalPath(drive->properties().root.view());
        return root == tree || (root.starts_with(tree) && root[tree.size()] == L'/');
    });
}

bool FakeFileManager::deleteTree(const Path& path)
{
    return act(Op::deleteTree, path, [&] {
        const std::wstring normal = fake::normalPath(path.view());
        if (normal == L"/" || !normal.starts_with(L'/'))
            return EINVAL;
        const std::shared_ptr<Node> node = core_->tree.findItself(path.view());
        if (node && node->kind == Node::Kind::folder && holdsDriveRoot(path))
            return EBUSY;
        return core_->tree.removeAll(path.view());
    });
}

// --- others

void FakeFileManager::reportError(const Path& path, unsigned code)
{
    note(Op::reportError, path);
    const Guard guard(mutex_);
    reported_.emplace_back(path, code);
}

void FakeFileManager::registerForRemoval(const Path& path)
{
    note(Op::registerForRemoval, path);
    const Guard guard(mutex_);
    forRemoval_.push_back(path);
}

Qz::Ptr<iAsyncContext> FakeFileManager::createAsyncContext(void* owner)
{
    note(Op::createAsyncContext);
    return Qz::Ptr<iAsyncContext>(new FakeAsyncContext(core_, owner));
}

// --- for tests: files and folders

void FakeFileManager::addFile(const Path& path, std::string_view contents)
{
    setContents(*core_->tree.put(path.view(), Node::Kind::file), contents);
}

void FakeFileManager::addSparseFile(const Path& path, std::uint64_t size)
{
    const std::shared_ptr<Node> node = core_->tree.put(path.view(), Node::Kind::file);
    const Guard guard(node->mutex);
    node->bytes.extend(size);
}

void FakeFileManager::addFolder(const Path& path) { core_->tree.put(path.view(), Node::Kind::folder); }

void FakeFileManager::addLink(const Path& path, const Path& target)
{
    core_->tree.put(path.view(), Node::Kind::link, target.view());
}

void FakeFileManager::addDirect(const Path& path, std::string_view contents)
{
    setContents(*core_->tree.put(path.view(), Node::Kind::direct), contents);
}

void FakeFileManager::remove(const Path& path) { core_->tree.removeAll(path.view()); }

bool FakeFileManager::has(const Path& path) const
{
    const std::shared_ptr<Node> node = core_->tree.find(path.view());
    return node && node->kind != Node::Kind::folder;
}

bool FakeFileManager::hasFolder(const Path& path) const
{
    const std::shared_ptr<Node> node = core_->tree.find(path.view());
    return node && node->kind == Node::Kind::folder;
}

std::string FakeFileManager::contents(const Path& path) const
{
    const std::shared_ptr<Node> node = core_->tree.find(path.view());
    return node ? contentsOf(*node) : std::string();
}

std::uint64_t FakeFileManager::size(const Path& path) const
{
    const std::shared_ptr<Node> node = core_->tree.find(path.view());
    return node ? sizeOf(*node) : 0;
}

void FakeFileManager::setListable(const Path& folder, bool listable)
{
    const std::shared_ptr<Node> node = core_->tree.put(folder.view(), Node::Kind::folder);
    const Guard guard(node->mutex);
    node->listable = listable;
}

void FakeFileManager::setWritable(const Path& path, bool writable)
{
    core_->tree.setWritable(path.view(), writable);
}

void FakeFileManager::setAsyncCapability(const Path& path, unsigned bits)
{
    if (const std::shared_ptr<Node> node = core_->tree.find(path.view())) {
        const Guard guard(node->mutex);
        node->capability = bits;
    }
}

std::vector<std::pair<Path, unsigned>> FakeFileManager::reportedErrors() const
{
    const Guard guard(mutex_);
    return reported_;
}

std::vector<Path> FakeFileManager::registeredForRemoval() const
{
    const Guard guard(mutex_);
    return forRemoval_;
}

void FakeFileManager::removeRegistered()
{
    for (const Path& path : registeredForRemoval())
        core_->tree.removeFile(path.view());
}
