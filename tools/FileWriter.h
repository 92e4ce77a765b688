#pragma once

#include "Qz/LightweightString.h"
#include "fsys/FsysEntry.h"

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// FileWriter: records a new file through the engine, byte for byte what it is given.
//
// Whole blocks go to the disk as direct requests, a bounded number at a time; the rest is written
// synchronously at the end. Nothing passes through the engine's write cache, which would place what it
// gathers elsewhere.
// The file grows under its name with ".partial" behind it, which scans pass over, and gets its name when it
// is finished.
// Threads: one thread.
class FileWriter
{
public:
    // Begins path; isOpen tells whether that went well.
    explicit FileWriter(const LightweightString<wchar_t>& path);
    // Removes what was not finished.
    ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    [[nodiscard]] bool isOpen() const { return file_ != nullptr; }
    // False once anything has failed.
    bool write(const void* data, std::size_t bytes);
    // Writes the rest, closes, renames. False, and no file, when anything failed.
    bool finish();

private:
    struct Pending;

    static void completed(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status);
    bool sendBlock();
    bool waitUntilAtMost(unsigned underWay);
    void close();

    LightweightString<wchar_t> path_;
    LightweightString<wchar_t> partialPath_;
    FsysFile* file_ = nullptr;
    Qz::Ptr<Pending> pending_;
    std::vector<unsigned char> rest_;
};
