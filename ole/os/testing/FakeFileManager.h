#pragma once

#include "os/iFileManager.h"
#include "os/testing/CallLog.h"
#include "os/testing/FakeDrive.h"
#include "os/testing/FakeTree.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct FakeCore;

// FakeFileManager: a file system in memory, with drives, shares and a machine name that the test sets.
//
// Starts with the empty folder "/", no drive, no share and the machine name "fakehost". Files and
// folders added by a test bring their parent folders with them; createDirectory and open do not.
// All operations are logged (CallLog) and those that can fail obey the FaultPlan.
//
// Threads: any.
class FakeFileManager : public iFileManager
{
public:
    explicit FakeFileManager(std::shared_ptr<FakeCore> core);

    Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                        unsigned mode) override;
    bool isOpenedDirectly(const Path& path) override;
    std::uint64_t getFileSize(const Path& path) override;
    bool fileExists(const Path& path) override;
    bool deleteFile(const Path& path) override;
    bool renameFile(const Path& from, const Path& to) override;
    bool readWholeFile(const Path& path, std::size_t limit, std::string& contents) override;
    bool replaceFile(const Path& path, const std::string& contents) override;
    bool directoryExists(const Path& path) override;
    bool createDirectory(const Path& path) override;
    bool isWritable(const Path& path) override;
    bool listDirectory(const Path& pattern, std::vector<DirectoryItem>& items) override;
    bool listFiles(const Path& pattern, FolderListing& files) override;  // logs and fails as listDirectory
    bool listFilesWithPrefix(const Path& folder, const Path& prefix,
                             std::vector<DirectoryItem>& items) override;
    bool deleteTree(const Path& path) override;
    wchar_t getPathSeparator() const override;
    Path resolvePath(const Path& path) override;
    bool hasDirectoryPart(const Path& path) const override;
    Path getUNCName(const Path& path) override;
    std::vector<ShareInfo> listShares(const LightweightString<wchar_t>& machineName) override;
    LightweightString<wchar_t> getMachineName() override;
    Qz::Ptr<iDiskDrive> getDriveForPath(const Path& path) override;
    std::vector<Qz::Ptr<iDiskDrive>> listDisks(unsigned flag) override;
    void reportError(const Path& path, unsigned code) override;
    void registerForRemoval(const Path& path) override;
    Qz::Ptr<iAsyncContext> createAsyncContext(void* owner) override;

    // --- for tests: files and folders

    void addFile(const Path& path, std::string_view contents = {});
    // A file of that many zero bytes; large ones cost nothing.
    void addSparseFile(const Path& path, std::uint64_t size);
    void addFolder(const Path& path);
    void addLink(const Path& path, const Path& target);
    // A path that is opened as it is: a pipe, a device. Handles answer capability 0.
    void addDirect(const Path& path, std::string_view contents = {});
    // Removes a file, or a folder with all it holds; unlogged, without rules.
    void remove(const Path& path);
    // Unlogged views of the file system.
    [[nodiscard]] bool has(const Path& path) const;
    [[nodiscard]] bool hasFolder(const Path& path) const;
    [[nodiscard]] std::string contents(const Path& path) const;
    [[nodiscard]] std::uint64_t size(const Path& path) const;
    // Listing the folder fails.
    void setListable(const Path& folder, bool listable);
    // Answer of isWritable for this very path, existing or not. Not writable, existing: opening it for
    // writing, and making, replacing or removing entries in it, fails with EACCES.
    void setWritable(const Path& path, bool writable);
    // Answer of getAsyncCapability for handles of this path, opened before or later.
    void setAsyncCapability(const Path& path, unsigned bits);
    // '/' unless set. Paths are still taken apart at '/' (and at '\', where the path does not exist).
    void setPathSeparator(wchar_t separator);

    // --- for tests: drives and network names

    // Appends a drive and makes its root folder.
    Qz::Ptr<FakeDrive> addDrive(const fake::DriveProperties& properties);
    // A local drive with 512-byte sectors.
    Qz::Ptr<FakeDrive> addDrive(const Path& root);
    void clearDrives();
    void setMachineName(const LightweightString<wchar_t>& name);
    // What this machine exports. Paths below localPath get UNC names from it.
    void addShare(const LightweightString<wchar_t>& uncName, const LightweightString<wchar_t>& localPath);
    // UNC name of localPrefix and of all paths below it (the rest follows with backslashes).
    void setUNCName(const Path& localPrefix, const LightweightString<wchar_t>& uncName);

    // --- for tests: what was reported

    [[nodiscard]] std::vector<std::pair<Path, unsigned>> reportedErrors() const;
    [[nodiscard]] std::vector<Path> registeredForRemoval() const;
    // What a normal exit of the process would do.
    void removeRegistered();

private:
    // The node to open; null with errorNumber set when there is none.
    [[nodiscard]] std::shared_ptr<fake::Node> nodeToOpen(const Path& path, unsigned access, unsigned creation,
                                                         int& errorNumber);
    [[nodiscard]] Qz::Ptr<iFile> makeHandle(const Path& path, unsigned access, unsigned mode,
                                            const std::shared_ptr<fake::Node>& node);
    // Runs action (an errno value, 0 for success) unless a fault is planned; logs; true on success.
    bool act(fake::Op op, const Path& path, const std::function<int()>& action);
    bool list(fake::Op op, const Path& logged, const Path& folder, std::vector<DirectoryItem>& items,
              const std::function<bool(std::wstring_view)>& wanted);
    void note(fake::Op op, const Path& path = {});
    // Logs a question; false when the platform cannot find the answer.
    [[nodiscard]] bool canTell(fake::Op op, const Path& path = {});
    [[nodiscard]] bool holdsDriveRoot(const Path& path) const;

    std::shared_ptr<FakeCore> core_;
    std::atomic<unsigned> handles_{0};
    mutable std::mutex mutex_;  // guards what follows
    wchar_t separator_ = L'/';
    LightweightString<wchar_t> machineName_ = L"fakehost";
    std::vector<Qz::Ptr<FakeDrive>> drives_;
    std::vector<ShareInfo> shares_;
    std::vector<std::pair<Path, LightweightString<wchar_t>>> uncNames_;
    std::vector<std::pair<Path, unsigned>> reported_;
    std::vector<Path> forRemoval_;
};
