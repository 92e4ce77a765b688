#pragma once

#include "Qz/LightweightString.h"
#include "fsys/FsysEntry.h"
#include "media/MediaWriter.h"
#include "os/LastError.h"
#include "os/testing/FakeOS.h"
#include "os/testing/ForwardingOS.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <span>
#include <string>
#include <vector>

// RecordingHelpers: what the tests of recordings share.

constexpr std::size_t mebibyte = std::size_t{1} << 20;

// Bytes without a pattern, the same for the same seed.
inline std::string noise(std::size_t size, unsigned seed = 1)
{
    std::mt19937_64 numbers(seed);
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; i += sizeof(std::uint64_t)) {
        const std::uint64_t number = numbers();
        std::memcpy(bytes.data() + i, &number, std::min(sizeof number, size - i));
    }
    return bytes;
}

inline std::span<const std::byte> bytesOf(const std::string& text)
{
    return std::as_bytes(std::span(text.data(), text.size()));
}

// Writes of random sizes, and where each of them ends.
class RandomWrites
{
public:
    RandomWrites(unsigned seed, unsigned count, std::size_t sizeMax)
    {
        std::mt19937_64 numbers(seed);
        std::size_t total = 0;
        for (unsigned i = 0; i < count; ++i) {
            // As many small ones as large ones, whatever the limit.
            const std::size_t limit = (numbers() % 2 == 0) ? sizeMax : std::min<std::size_t>(sizeMax, 3000);
            total += numbers() % (limit + 1);
            ends_.push_back(total);
        }
        all_ = noise(total, seed);
    }

    [[nodiscard]] const std::string& all() const { return all_; }
    [[nodiscard]] std::size_t count() const { return ends_.size(); }
    [[nodiscard]] std::span<const std::byte> operator[](std::size_t i) const
    {
        const std::size_t start = i == 0 ? 0 : ends_[i - 1];
        return bytesOf(all_).subspan(start, ends_[i] - start);
    }
    [[nodiscard]] std::size_t endOf(std::size_t i) const { return ends_[i]; }
    [[nodiscard]] bool isWholeEnd(std::uint64_t position) const
    {
        return position == 0 || std::binary_search(ends_.begin(), ends_.end(), position);
    }

private:
    std::string all_;
    std::vector<std::size_t> ends_;
};

// FakeRecordingTest: the engine on a fake platform of virtual time, with real poll threads and transfers that
// end by themselves unless a test holds them.
class FakeRecordingTest : public testing::Test
{
protected:
    using Path = LightweightString<wchar_t>;

    FakeRecordingTest() : installed_(os)
    {
        os.threads().useRealThreads();
        os.transfers().setAutomatic(true);
        os.files().addDrive(L"/m/");
        os.files().addFolder(L"/m/Material");
        FsysInitialize();
    }
    ~FakeRecordingTest() override
    {
        FsysSetNetworkWriteCaching(false);
        stopEngine();
    }
    void stopEngine() { FsysUninitialize(Shutdown::eNormalExit); }

    // A wait without limit does not move the virtual time, so a thread that comes late is no stalled disk.
    static MediaWriterOptions options()
    {
        MediaWriterOptions result;
        result.stallLimitMs = 0;
        return result;
    }
    [[nodiscard]] std::string contents(const Path& file) { return os.files().contents(file); }

    FakeOS os;
    const Path path = L"/m/Material/shot.mov";
    const Path partial = L"/m/Material/shot.mov.partial";

private:
    ScopedOS installed_;
};

// A platform whose renames are done and not safe yet: it could not flush the folder.
struct UnsafeRenames : ForwardingFileManager
{
    using ForwardingFileManager::ForwardingFileManager;
    bool renameFile(const LightweightString<wchar_t>& from, const LightweightString<wchar_t>& to) override
    {
        target().renameFile(from, to);
        setLastErrno(EIO);
        return false;
    }
};
