// A reader whose threads cannot be started, now or ever.

#include "LinuxStage.h"
#include "ScenarioHelpers.h"
#include "common/SystemFaults.h"

#include "media/MediaReader.h"

#include <cerrno>
#include <future>
#include <gtest/gtest.h>

namespace {

using system_faults::Call;
using system_faults::Fault;
using system_faults::Scope;

constexpr unsigned clip = 1;
constexpr std::chrono::seconds patience(60);

Fault noThread(unsigned count = Fault::forEver) { return {Call::startThread, EAGAIN, 1, count}; }

class ReaderThreadShortage : public testing::Test
{
protected:
    void SetUp() override
    {
        stage_.put(clipFile(clip), bytes_);
        registerStage(stage_);
        SystemCache::initialise(true);
        FsysInitialize();
        DecodeFormat format(eHighRes);
        reader_ = std::make_unique<MediaReader>(clipNumber(clip), format);
        ASSERT_TRUE(reader_->isOpen());
    }
    void TearDown() override
    {
        reader_.reset();
        FsysUninitialize(Shutdown::eNormalExit);
        DiskManager::reInit(true);
        SystemCache::invalidate();
    }
    [[nodiscard]] bool isAllOf(const MediaReadResult& result) const
    {
        const auto got = result.data.bytes();
        return !result.error && bytes_ == std::string(reinterpret_cast<const char*>(got.data()), got.size());
    }

    LinuxStage stage_;
    const std::string bytes_ = mediaBytes(100'000, 3);
    std::unique_ptr<MediaReader> reader_;
};

}  // namespace

TEST_F(ReaderThreadShortage, WithoutAWorkerAFutureTellsAtOnce)
{
    const Scope none(noThread());
    const MediaReadResult result = reader_->readAsync(0, bytes_.size()).get();
    EXPECT_EQ(result.error.code, MediaErrorCode::noMemory);
    EXPECT_TRUE(result.data.empty());
}

TEST_F(ReaderThreadShortage, WithoutAnyThreadCallbacksComeAtTheEnd)
{
    const Scope none(noThread());
    unsigned calls = 0;
    MediaErrorCode code = MediaErrorCode::none;
    reader_->readAsync(0, bytes_.size(), [&](const MediaReadResult& result) {
        ++calls;
        code = result.error.code;
    });
    EXPECT_EQ(calls, 0U);
    reader_.reset();
    EXPECT_EQ(calls, 1U);
    EXPECT_EQ(code, MediaErrorCode::noMemory);
}

TEST_F(ReaderThreadShortage, WithoutAWorkerReadsGoOnThatNeedNone)
{
    std::string got(bytes_.size(), '\0');
    // A pool of threads starts them for its first transfer.
    EXPECT_EQ(reader_->read(bytes_.size() - 1, std::as_writable_bytes(std::span(got).first(1))), 1U);
    const Scope none(noThread());
    reader_->setReadAhead(1 << 20);
    MediaError error;
    EXPECT_EQ(reader_->read(0, std::as_writable_bytes(std::span(got)), &error), bytes_.size());
    EXPECT_FALSE(error) << error.text;
    EXPECT_TRUE(got == bytes_);
}

// Its caller may wait for nothing else.
TEST_F(ReaderThreadShortage, ACallbackThatFoundNoThreadComesWhenThereIsOne)
{
    ASSERT_TRUE(isAllOf(reader_->readAsync(0, bytes_.size()).get()));  // the worker is there from here on
    constexpr unsigned refusals = 3;
    const Scope some(noThread(refusals));
    std::promise<bool> answer;
    reader_->readAsync(0, bytes_.size(),
                       [&](const MediaReadResult& result) { answer.set_value(isAllOf(result)); });
    std::future<bool> isRight = answer.get_future();
    ASSERT_EQ(isRight.wait_for(patience), std::future_status::ready);
    EXPECT_TRUE(isRight.get());
    EXPECT_EQ(system_faults::fired(), refusals);
}

TEST_F(ReaderThreadShortage, AnErrorWhoseCallbackFoundNoThreadComesWhenThereIsOne)
{
    ASSERT_TRUE(isAllOf(reader_->readAsync(0, bytes_.size()).get()));
    const Scope some(noThread(2));
    std::promise<MediaErrorCode> answer;
    reader_->readAsync(0, ~std::uint64_t{0},
                       [&](const MediaReadResult& result) { answer.set_value(result.error.code); });
    std::future<MediaErrorCode> code = answer.get_future();
    ASSERT_EQ(code.wait_for(patience), std::future_status::ready);
    EXPECT_EQ(code.get(), MediaErrorCode::invalidArgument);
}
