#pragma once

#include "fsys/FsysEntry.h"
#include "media/MediaReader.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/testing/FakeOS.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// MediaReaderFixture: the engine with its own threads on the fake platform, for tests of MediaReader.
//
// Transfers end by themselves until a test holds them (os.transfers().setAutomatic(false)).

namespace readertest {

using Path = LightweightString<wchar_t>;

// No two places of it look alike, so that data of a wrong place is found out.
inline std::string patternOf(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t word = 0; word * 8 < size; ++word) {
        const std::uint64_t mixed = (word + 1) * 0x9E3779B97F4A7C15ULL;
        std::memcpy(bytes.data() + word * 8, &mixed, std::min<std::size_t>(8, size - word * 8));
    }
    return bytes;
}

inline std::string textOf(std::span<const std::byte> bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

inline std::string linkTo(const std::string& target)
{
    std::string contents = target;
    contents.resize(512);
    return contents;
}

// What one synchronous read gave.
struct Got
{
    std::string bytes;
    MediaErrorCode code = MediaErrorCode::none;
    unsigned platformCode = 0;
    std::string untouched;  // of the buffer, behind the bytes
};

inline Got readOf(MediaReader& reader, std::uint64_t offset, std::size_t bytes)
{
    std::string buffer(bytes, '#');
    MediaError error;
    const std::size_t got = reader.read(offset, std::as_writable_bytes(std::span(buffer)), &error);
    return {buffer.substr(0, got), error.code, error.platformCode, buffer.substr(got)};
}

// Callbacks of asynchronous reads, in the order of their calls.
class Answers
{
public:
    struct Answer
    {
        std::uint64_t offset;
        std::string bytes;
        MediaErrorCode code;
        unsigned platformCode;
        std::thread::id thread;
    };

    // For the read of that offset.
    MediaReader::Callback at(std::uint64_t offset)
    {
        return [this, offset](const MediaReadResult& result) {
            const std::lock_guard<std::mutex> hold(guard_);
            answers_.push_back({offset, textOf(result.data.bytes()), result.error.code,
                                result.error.platformCode, std::this_thread::get_id()});
            changed_.notify_all();
        };
    }
    // Waits until there are so many; all there are.
    std::vector<Answer> await(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(guard_);
        changed_.wait_for(lock, std::chrono::seconds(60), [&] { return answers_.size() >= count; });
        return answers_;
    }
    [[nodiscard]] std::vector<Answer> all() const
    {
        const std::lock_guard<std::mutex> hold(guard_);
        return answers_;
    }
    [[nodiscard]] std::size_t count() const { return all().size(); }

private:
    mutable std::mutex guard_;
    std::condition_variable changed_;
    std::vector<Answer> answers_;
};

// Lets threads wait for each other.
class Gate
{
public:
    void open()
    {
        const std::lock_guard<std::mutex> hold(guard_);
        open_ = true;
        changed_.notify_all();
    }
    // False when nobody opens it.
    bool pass()
    {
        std::unique_lock<std::mutex> lock(guard_);
        return changed_.wait_for(lock, std::chrono::seconds(60), [this] { return open_; });
    }

private:
    std::mutex guard_;
    std::condition_variable changed_;
    bool open_ = false;
};

class ReaderTest : public testing::Test
{
protected:
    ReaderTest()
    {
        os.files().addDrive(L"/m/");
        FsysInitialize();
    }
    ~ReaderTest() override { FsysUninitialize(Shutdown::eNormalExit); }

    // A file of that many bytes of the pattern.
    std::string addPattern(const Path& path, std::size_t size)
    {
        std::string bytes = patternOf(size);
        os.files().addFile(path, bytes);
        return bytes;
    }
    void resize(const Path& path, std::uint64_t size)
    {
        const auto file =
            os.files().open(path, os::accessWrite, os::creationOpen, os::shareAll, os::modePlain);
        ASSERT_TRUE(file->setSize(size));
    }
    void write(const Path& path, std::uint64_t offset, const std::string& bytes)
    {
        const auto file =
            os.files().open(path, os::accessWrite, os::creationOpen, os::shareAll, os::modePlain);
        ASSERT_TRUE(file->write(offset, bytes.data(), bytes.size(), nullptr));
    }
    void hold() { os.transfers().setAutomatic(false); }
    // Ends what is held, again and again, until done answers true.
    template <class Done>
    void completeUntil(Done done)
    {
        while (!done()) {
            os.transfers().completeAll();
            std::this_thread::yield();
        }
    }

    FakeOS os{FakeOS::Mode::realThreads};
    ScopedOS installed{os};
};

}  // namespace readertest
