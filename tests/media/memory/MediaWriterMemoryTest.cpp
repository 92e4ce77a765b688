// Recordings whose program has no memory left. The operators here serve the whole program of the tests; they
// fail only for a thread that asked for it.

#include "../RecordingHelpers.h"

#include <cstdlib>
#include <limits>
#include <new>
#include <optional>

namespace {

constexpr unsigned never = std::numeric_limits<unsigned>::max();

struct Shortage
{
    std::size_t smallest = 0;  // requests of fewer bytes are served
    unsigned before = never;   // served before the first that fails
    bool lasts = false;        // whether all after it fail too
    unsigned failed = 0;
};

thread_local Shortage shortage;

bool isShort(std::size_t bytes)
{
    if (shortage.before == never || bytes < shortage.smallest)
        return false;
    if (shortage.before != 0) {
        --shortage.before;
        return false;
    }
    if (!shortage.lasts)
        shortage.before = never;
    ++shortage.failed;
    return true;
}

// One write while memory is short; nothing when an exception came out of it.
std::optional<bool> writeShort(MediaWriter& writer, std::span<const std::byte> data, const Shortage& planned)
{
    shortage = planned;
    std::optional<bool> result;
    try {
        result = writer.write(data);
    } catch (const std::bad_alloc&) {
        result.reset();
    }
    shortage.before = never;
    return result;
}

}  // namespace

void* operator new(std::size_t bytes)
{
    void* const memory = isShort(bytes) ? nullptr : std::malloc(bytes == 0 ? 1 : bytes);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}
void* operator new[](std::size_t bytes) { return ::operator new(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    return isShort(bytes) ? nullptr : std::malloc(bytes == 0 ? 1 : bytes);
}
void* operator new[](std::size_t bytes, const std::nothrow_t& nothrow) noexcept
{
    return ::operator new(bytes, nothrow);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace {

using MediaWriterMemory = FakeRecordingTest;

}  // namespace

TEST_F(MediaWriterMemory, ABlockWithoutMemoryIsAFailureOnceAndForAll)
{
    const std::string all = noise(4 * mebibyte);
    {
        MediaWriter writer(path, options());
        EXPECT_TRUE(writer.write(bytesOf(all).first(mebibyte + 7)));
        const Shortage large{.smallest = 100'000, .before = 0, .lasts = true};
        EXPECT_EQ(false, writeShort(writer, bytesOf(all).subspan(mebibyte + 7, 2 * mebibyte), large));
        EXPECT_EQ(1U, shortage.failed);
        EXPECT_EQ(MediaErrorCode::noMemory, writer.error().code);
        EXPECT_FALSE(writer.write(bytesOf("x"))) << "a failure was forgotten";
        const MediaRecording recorded = writer.finish();
        EXPECT_EQ(MediaErrorCode::noMemory, recorded.error.code);
        EXPECT_FALSE(recorded.complete);
        EXPECT_EQ(mebibyte + 7, recorded.bytes);
        EXPECT_TRUE(contents(partial) == all.substr(0, mebibyte + 7));
    }
    stopEngine();
    EXPECT_EQ(0U, os.live().pages);
}

// The first, second, third ... request for memory fails, until a write needs no more of them.
TEST_F(MediaWriterMemory, WhicheverRequestFailsNoWriteThrowsAndWhatWasTakenIsKept)
{
    const std::string all = noise(3 * mebibyte);
    unsigned failures = 0;
    for (unsigned before = 0;; ++before) {
        SCOPED_TRACE(before);
        MediaWriter writer(path, options());
        EXPECT_TRUE(writer.write(bytesOf(all).first(7)));
        const auto rest = bytesOf(all).subspan(7, 2 * mebibyte);
        const std::optional<bool> taken = writeShort(writer, rest, {.before = before});
        const bool isEnough = shortage.failed == 0;
        ASSERT_TRUE(taken.has_value());
        const MediaRecording recorded = writer.finish();
        const std::size_t kept = *taken ? 7 + rest.size() : 7;
        EXPECT_EQ(kept, recorded.bytes);
        EXPECT_TRUE(contents(recorded.path) == all.substr(0, kept));
        EXPECT_TRUE(recorded.complete || recorded.error.code == MediaErrorCode::noMemory);
        os.files().remove(recorded.path);
        if (isEnough)
            break;
        ++failures;
    }
    EXPECT_GE(failures, 2U);
}
