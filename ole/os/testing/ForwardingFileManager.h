#pragma once

#include "os/iFileManager.h"

// ForwardingFileManager: passes every call on to another file manager, so that a test overrides one method.
class ForwardingFileManager : public iFileManager
{
public:
    // target outlives this object.
    explicit ForwardingFileManager(iFileManager& target) : target_(target) {}
    [[nodiscard]] iFileManager& target() const { return target_; }

    Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                        unsigned mode) override
    {
        return target_.open(path, access, creation, share, mode);
    }
    bool isOpenedDirectly(const Path& path) override { return target_.isOpenedDirectly(path); }
    std::uint64_t getFileSize(const Path& path) override { return target_.getFileSize(path); }
    bool fileExists(const Path& path) override { return target_.fileExists(path); }
    bool deleteFile(const Path& path) override { return target_.deleteFile(path); }
    bool renameFile(const Path& from, const Path& to) override { return target_.renameFile(from, to); }
    bool readWholeFile(const Path& path, std::size_t limit, std::string& contents) override
    {
        return target_.readWholeFile(path, limit, contents);
    }
    bool replaceFile(const Path& path, const std::string& contents) override
    {
        return target_.replaceFile(path, contents);
    }
    bool directoryExists(const Path& path) override { return target_.directoryExists(path); }
    bool createDirectory(const Path& path) override { return target_.createDirectory(path); }
    bool isWritable(const Path& path) override { return target_.isWritable(path); }
    bool listDirectory(const Path& pattern, std::vector<DirectoryItem>& items) override
    {
        return target_.listDirectory(pattern, items);
    }
    bool listFiles(const Path& pattern, FolderListing& files) override
    {
        return target_.listFiles(pattern, files);
    }
    bool listFilesWithPrefix(const Path& folder, const Path& prefix,
                             std::vector<DirectoryItem>& items) override
    {
        return target_.listFilesWithPrefix(folder, prefix, items);
    }
    bool deleteTree(const Path& path) override { return target_.deleteTree(path); }
    wchar_t getPathSeparator() const override { return target_.getPathSeparator(); }
    Path resolvePath(const Path& path) override { return target_.resolvePath(path); }
    bool hasDirectoryPart(const Path& path) const override { return target_.hasDirectoryPart(path); }
    Path getUNCName(const Path& path) override { return target_.getUNCName(path); }
    std::vector<ShareInfo> listShares(const LightweightString<wchar_t>& machineName) override
    {
        return target_.listShares(machineName);
    }
    LightweightString<wchar_t> getMachineName() override { return target_.getMachineName(); }
    Qz::Ptr<iDiskDrive> getDriveForPath(const Path& path) override { return target_.getDriveForPath(path); }
    std::vector<Qz::Ptr<iDiskDrive>> listDisks(unsigned flag) override { return target_.listDisks(flag); }
    void reportError(const Path& path, unsigned code) override { target_.reportError(path, code); }
    void registerForRemoval(const Path& path) override { target_.registerForRemoval(path); }
    Qz::Ptr<iAsyncContext> createAsyncContext(void* owner) override
    {
        return target_.createAsyncContext(owner);
    }

private:
    iFileManager& target_;
};
