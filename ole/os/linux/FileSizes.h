#pragma once

#include "os/linux/BoundedCalls.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace os {

// Some names of a folder, and what the disk told about them.
struct NameBatch
{
    static constexpr std::uint64_t noFile = ~std::uint64_t{0};

    struct Name
    {
        std::uint32_t begin;  // in text
        std::uint32_t length;
        std::uint64_t size = noFile;  // bytes; stays noFile for what is no regular file
    };

    std::string text;  // the names, each with its zero
    std::vector<Name> names;
};

// FileSizes: asks the disk for the sizes of a folder's files, one question per name, while the caller still
// reads the folder.
//
// The question is most of the cost of a listing, and two processors share it well. So a folder of more than
// a handful of files gets a helper thread; where none can be started the caller does it all.
//
// Threads:    one caller. The helper never outlives this object, however slow the disk: the destructor
//             waits for the batch that it is at.
// Ownership:  owns the batches. Borrows folder and progress; both outlive this object.
// Errors:     none; a name that has vanished, or is no regular file, keeps noFile.
class FileSizes
{
public:
    // More names than these are worth a thread.
    static constexpr std::size_t namesAloneMax = 255;
    // A batch of more would leave the two waiting for each other at the end.
    static constexpr std::size_t batchNamesMax = 256;

    // folder is an open descriptor.
    FileSizes(int folder, Progress& progress) : folder_(folder), progress_(progress) {}
    ~FileSizes() { stop(); }
    FileSizes(const FileSizes&) = delete;
    FileSizes& operator=(const FileSizes&) = delete;

    // Hands over names; their text stays where it is until the end, their sizes may come at once.
    void add(NameBatch batch);
    // Asks for whatever was not asked for yet, together with the helper. Sizes are complete then.
    // REQUIRES: no add follows.
    void finish();

    [[nodiscard]] std::deque<NameBatch>& batches() { return batches_; }
    [[nodiscard]] bool hasHelper() const { return helper_.joinable(); }

private:
    void startHelper();
    void help();
    void stop();
    // The next batch that nobody has asked for; null when there is none and none will come.
    [[nodiscard]] NameBatch* take();
    void askFor(NameBatch& batch, Progress::Part part) noexcept;

    const int folder_;
    Progress& progress_;
    std::size_t names_ = 0;      // added so far
    bool triedToStart_ = false;  // the helper

    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<NameBatch> batches_;  // guarded by lock_; its elements belong to whoever took them
    std::size_t taken_ = 0;          // guarded by lock_
    bool isComplete_ = false;        // guarded by lock_; no batch will come
    std::thread helper_;
};

}  // namespace os
