#include "os/linux/UncachedRead.h"

#include "common/TemporaryFolder.h"
#include "os/linux/ScopedFd.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string patternOf(std::size_t size)
{
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        text[i] = static_cast<char>((i * 2654435761U) >> 11);
    return text;
}

}  // namespace

TEST(UncachedRead, ReadsWhatIsThereAndNothingBehindTheEnd)
{
    const TemporaryFolder folder;
    const std::string contents = patternOf(100'000);
    const os::ScopedFd file(::open(folder.file("f", contents).c_str(), O_RDONLY | O_CLOEXEC));
    std::string memory(contents.size() + 10, 'z');
    EXPECT_EQ(os::readPastCache(file.get(), memory.data(), 1000, 77), 1000);
    EXPECT_EQ(memory.substr(0, 1000), contents.substr(77, 1000));
    EXPECT_EQ(memory[1000], 'z');
    EXPECT_EQ(os::readPastCache(file.get(), memory.data(), memory.size(), 0),
              static_cast<std::int64_t>(contents.size()));
    EXPECT_EQ(memory, contents + "zzzzzzzzzz");
    EXPECT_EQ(os::readPastCache(file.get(), memory.data(), 10, contents.size()), 0);
}

TEST(UncachedRead, AnswersWithTheErrorOfTheKernel)
{
    std::array<char, 10> memory{};
    EXPECT_EQ(os::readPastCache(-1, memory.data(), memory.size(), 0), -EBADF);
    const TemporaryFolder folder;
    const os::ScopedFd file(::open(folder.file("f").c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(os::readPastCache(file.get(), memory.data(), memory.size(), 0), -EBADF);
}

TEST(UncachedRead, ThreadsDoNotDisturbEachOther)
{
    const TemporaryFolder folder;
    const std::string contents = patternOf(1'000'000);
    const os::ScopedFd file(::open(folder.file("f", contents).c_str(), O_RDONLY | O_CLOEXEC));
    std::vector<std::thread> threads;
    for (std::size_t first = 0; first < 8; ++first)
        threads.emplace_back([&, first] {
            std::string memory(1000, '\0');
            for (std::size_t at = first * 1000; at < contents.size(); at += 8000) {
                ASSERT_EQ(os::readPastCache(file.get(), memory.data(), memory.size(), at), 1000);
                ASSERT_EQ(memory, contents.substr(at, 1000));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}
