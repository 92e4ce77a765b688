#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "common/TemporaryFolder.h"
#include "os/testing/ForwardingOS.h"
#include "os/testing/ScopedOS.h"

// TestFolder: a temporary folder whose names are wide, as the library takes them.
class TestFolder
{
public:
    [[nodiscard]] LightweightString<wchar_t> path() const { return wide(folder_.path()); }
    [[nodiscard]] LightweightString<wchar_t> path(const char* name) const { return wide(folder_ / name); }

    // Makes a file, with the folders that it lies in.
    LightweightString<wchar_t> write(const char* name, const std::string& contents) const
    {
        std::filesystem::create_directories(std::filesystem::path(folder_ / name).parent_path());
        folder_.file(name, contents);
        return path(name);
    }
    // Contents of a file; empty when there is none.
    [[nodiscard]] std::string read(const char* name) const { return contentsOf(folder_ / name); }
    [[nodiscard]] bool has(const char* name) const { return std::filesystem::exists(folder_ / name); }

private:
    TemporaryFolder folder_;
};

// A link file's contents.
inline std::string linkTo(const std::string& target)
{
    return target + std::string(512 - target.size(), '\0');
}

// FileSpy: the platform's file manager, watched and made to fail where a test wants that.
//
// Installed for its lifetime; everything else of the platform is the real one.
class FileSpy : public ForwardingFileManager
{
public:
    struct Opened
    {
        Path path;
        unsigned access, creation, share, mode;
        bool operator==(const Opened&) const = default;
    };

    FileSpy() : ForwardingFileManager(*OS()->getFileManager()), os_(*OS()), installed_(os_)
    {
        os_.use(*this);
    }

    bool failOpens = false;
    bool openInvalid = false;  // opened files say that they are not open
    bool failReads = false;
    bool failWrites = false;                    // half of the bytes get there, as on a full disk
    std::optional<bool> pathsHaveDirectories;   // the answer of hasDirectoryPart, where given
    std::optional<bool> pathsAreWritable;       // the answer of isWritable, where given
    Path machineName;                           // where not empty
    std::atomic<int> diskAccesses{0};           // calls that look at the disk or change it
    std::atomic<std::size_t> bytesAskedFor{0};  // by the last read
    std::vector<Path> reportedErrors;
    std::vector<Path> registeredForRemoval;

    [[nodiscard]] std::vector<Opened> opens() const
    {
        const std::lock_guard guard(lock_);
        return opens_;
    }

    Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                        unsigned mode) override
    {
        ++diskAccesses;
        {
            const std::lock_guard guard(lock_);
            opens_.push_back({path, access, creation, share, mode});
        }
        if (failOpens)
            return {};
        Qz::Ptr<iFile> file = target().open(path, access, creation, share, mode);
        return file ? Qz::Ptr<iFile>(new File(*this, file)) : file;
    }
    std::uint64_t getFileSize(const Path& path) override { return touch().getFileSize(path); }
    bool fileExists(const Path& path) override { return touch().fileExists(path); }
    bool deleteFile(const Path& path) override { return touch().deleteFile(path); }
    bool directoryExists(const Path& path) override { return touch().directoryExists(path); }
    bool isWritable(const Path& path) override
    {
        return pathsAreWritable ? *pathsAreWritable : touch().isWritable(path);
    }
    bool isOpenedDirectly(const Path& path) override { return touch().isOpenedDirectly(path); }
    Path resolvePath(const Path& path) override { return touch().resolvePath(path); }
    bool hasDirectoryPart(const Path& path) const override
    {
        return pathsHaveDirectories ? *pathsHaveDirectories : target().hasDirectoryPart(path);
    }
    Path getUNCName(const Path& path) override { return touch().getUNCName(path); }
    Qz::Ptr<iDiskDrive> getDriveForPath(const Path& path) override { return touch().getDriveForPath(path); }
    LightweightString<wchar_t> getMachineName() override
    {
        return machineName.empty() ? target().getMachineName() : machineName;
    }
    void reportError(const Path& path, unsigned) override { reportedErrors.push_back(path); }
    void registerForRemoval(const Path& path) override { registeredForRemoval.push_back(path); }

private:
    class File : public ForwardingFile
    {
    public:
        File(FileSpy& spy, const Qz::Ptr<iFile>& real) : ForwardingFile(real), spy_(spy) {}
        bool isOpen() const override { return !spy_.openInvalid && ForwardingFile::isOpen(); }
        bool read(std::uint64_t position, void* buffer, std::size_t count, std::size_t* done) override
        {
            spy_.bytesAskedFor = count;
            return !spy_.failReads && ForwardingFile::read(position, buffer, count, done);
        }
        bool write(std::uint64_t position, const void* buffer, std::size_t count, std::size_t* done) override
        {
            const std::size_t written = spy_.failWrites ? count / 2 : count;
            return ForwardingFile::write(position, buffer, written, done) && !spy_.failWrites;
        }

    private:
        FileSpy& spy_;
    };

    iFileManager& touch()
    {
        ++diskAccesses;
        return target();
    }

    mutable std::mutex lock_;
    std::vector<Opened> opens_;
    ForwardingOS os_;
    ScopedOS installed_;
};
