// Asynchronous reads: callbacks, futures, cancelling, and the end of a reader.

#include "MediaReaderFixture.h"

#include <cerrno>
#include <memory>
#include <set>
#include <stdexcept>

using namespace readertest;

namespace {

constexpr std::size_t inEngineMax = 32;

class MediaReaderAsync : public ReaderTest
{
protected:
    // Of reads that the engine does not join with each other.
    static constexpr std::uint64_t apart = 1 << 20;

    // Asks for count short reads, far apart, and waits until the device has as many as the engine takes.
    void askApart(MediaReader& reader, Answers& answers, std::size_t count,
                  std::vector<MediaReader::Ticket>* tickets = nullptr)
    {
        for (std::size_t i = 0; i < count; ++i) {
            const auto ticket = reader.readAsync(i * apart, 100, answers.at(i * apart));
            if (tickets)
                tickets->push_back(ticket);
        }
        ASSERT_TRUE(os.transfers().awaitHeld(std::min(count, inEngineMax)));
    }
    void addLarge() { os.files().addSparseFile(L"/m/a.mov", 1ULL << 30); }
};

using MediaReaderEnd = MediaReaderAsync;

}  // namespace

TEST_F(MediaReaderAsync, ACallbackGetsItsBytesOnAnotherThread)
{
    const std::string bytes = addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    Answers answers;
    EXPECT_NE(0U, reader.readAsync(777, 5000, answers.at(777)));
    const auto all = answers.await(1);
    ASSERT_EQ(1U, all.size());
    EXPECT_EQ(bytes.substr(777, 5000), all[0].bytes);
    EXPECT_EQ(MediaErrorCode::none, all[0].code);
    EXPECT_NE(std::this_thread::get_id(), all[0].thread);
}

TEST_F(MediaReaderAsync, ACallbackNeverRunsInsideTheCallThatAsks)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    readOf(reader, 0, 5000);  // from now on the engine has it and answers inside the call
    std::mutex guard;
    Answers answers;
    const auto locking = [&](const MediaReadResult& result) {
        const std::lock_guard<std::mutex> hold(guard);
        answers.at(0)(result);
    };
    {
        const std::lock_guard<std::mutex> hold(guard);
        reader.readAsync(0, 5000, locking);
        reader.readAsync(0, 0, locking);
        reader.readAsync(1'000'000, 1, locking);
        reader.readAsync(0, MediaReader::asyncBytesMax + 1, locking);
        EXPECT_EQ(0U, answers.count());
    }
    EXPECT_EQ(4U, answers.await(4).size());
}

TEST_F(MediaReaderAsync, AFutureGetsItsBytesToo)
{
    const std::string bytes = addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    std::future<MediaReadResult> one = reader.readAsync(10, 1000);
    std::future<MediaReadResult> two = reader.readAsync(90'000, 50'000);
    EXPECT_EQ(bytes.substr(90'000), textOf(two.get().data.bytes()));
    EXPECT_EQ(bytes.substr(10, 1000), textOf(one.get().data.bytes()));
}

TEST_F(MediaReaderAsync, CallbacksComeInTheOrderInWhichReadsEnd)
{
    addLarge();
    MediaReader reader(L"/m/a.mov");
    hold();
    Answers answers;
    askApart(reader, answers, 3);
    // The device's order is its own business; the places tell which read is which.
    std::vector<std::uint64_t> ends;
    while (os.transfers().heldCount() != 0) {
        const std::size_t last = os.transfers().heldCount() - 1;
        ends.push_back(os.transfers().held()[last].position);
        os.transfers().completeAt(last);
    }
    std::vector<std::uint64_t> told;
    for (const auto& answer : answers.await(3))
        told.push_back(answer.offset);
    EXPECT_EQ(ends, told);
}

TEST_F(MediaReaderAsync, FiveHundredReadsAtOnceAllEndWithTheirBytes)
{
    const std::string bytes = addPattern(L"/m/a.mov", 5'000'000);
    Answers answers;
    MediaReader reader(L"/m/a.mov");
    std::mt19937 dice(3);
    std::multiset<std::string> expected;
    for (int i = 0; i < 500; ++i) {
        const std::size_t offset = dice() % 4'900'000;
        const std::size_t length = 1 + dice() % 100'000;
        reader.readAsync(offset, length, answers.at(offset));
        expected.insert(bytes.substr(offset, length));
    }
    std::multiset<std::string> got;
    for (const auto& answer : answers.await(500))
        got.insert(answer.bytes);
    EXPECT_TRUE(expected == got);
}

TEST_F(MediaReaderAsync, TheEngineIsGivenNoMoreThanItTakes)
{
    addLarge();
    MediaReader reader(L"/m/a.mov");
    hold();
    Answers answers;
    askApart(reader, answers, 100);
    EXPECT_EQ(inEngineMax, os.transfers().heldCount());
    completeUntil([&] { return answers.count() == 100; });
    for (const auto& answer : answers.all())
        EXPECT_EQ(MediaErrorCode::none, answer.code);
}

TEST_F(MediaReaderAsync, DataOutlivesItsReaderAndTheEngine)
{
    const std::string bytes = addPattern(L"/m/a.mov", 50'000);
    MediaData data;
    MediaData copy;
    {
        MediaReader reader(L"/m/a.mov");
        data = reader.readAsync(100, 40'000).get().data;
        copy = data;
    }
    FsysUninitialize(Shutdown::eNormalExit);
    os.files().remove(L"/m/a.mov");
    EXPECT_EQ(bytes.substr(100, 40'000), textOf(data.bytes()));
    data = MediaData();
    EXPECT_EQ(bytes.substr(100, 40'000), textOf(copy.bytes()));
}

// --- cancelling

TEST_F(MediaReaderAsync, AReadThatWaitsCanBeCancelledOnce)
{
    addLarge();
    MediaReader reader(L"/m/a.mov");
    hold();
    Answers answers;
    std::vector<MediaReader::Ticket> tickets;
    askApart(reader, answers, 40, &tickets);
    EXPECT_TRUE(reader.cancel(tickets[39]));
    EXPECT_FALSE(reader.cancel(tickets[39]));
    const auto first = answers.await(1);
    ASSERT_EQ(1U, first.size());
    EXPECT_EQ(39 * apart, first[0].offset);
    EXPECT_EQ(MediaErrorCode::cancelled, first[0].code);
    EXPECT_EQ("", first[0].bytes);
    completeUntil([&] { return answers.count() == 40; });
    EXPECT_FALSE(reader.cancel(tickets[39]));
    EXPECT_EQ(39U, os.transfers().accepted());
}

TEST_F(MediaReaderAsync, AReadThatHasStartedCannotBeCancelled)
{
    addLarge();
    MediaReader reader(L"/m/a.mov");
    hold();
    Answers answers;
    std::vector<MediaReader::Ticket> tickets;
    askApart(reader, answers, 1, &tickets);
    EXPECT_FALSE(reader.cancel(tickets[0]));
    os.transfers().completeNext();
    EXPECT_EQ(MediaErrorCode::none, answers.await(1)[0].code);
    EXPECT_FALSE(reader.cancel(tickets[0]));
}

TEST_F(MediaReaderAsync, ATicketThatNamesNoReadCancelsNothing)
{
    addLarge();
    MediaReader reader(L"/m/a.mov");
    EXPECT_FALSE(reader.cancel(0));
    EXPECT_FALSE(reader.cancel(12345));
}

TEST_F(MediaReaderAsync, CancelAllCancelsWhatWaitsAndTellsHowMany)
{
    addLarge();
    MediaReader reader(L"/m/a.mov");
    hold();
    Answers answers;
    askApart(reader, answers, 50);
    EXPECT_EQ(50U - inEngineMax, reader.cancelAll());
    EXPECT_EQ(0U, reader.cancelAll());
    completeUntil([&] { return answers.count() == 50; });
    const auto all = answers.all();
    EXPECT_EQ(50 - static_cast<long>(inEngineMax),
              std::count_if(all.begin(), all.end(),
                            [](const auto& answer) { return answer.code == MediaErrorCode::cancelled; }));
    EXPECT_EQ(inEngineMax, os.transfers().accepted());
}

// --- what callbacks may do

TEST_F(MediaReaderAsync, ACallbackThatThrowsHurtsNobody)
{
    const std::string bytes = addPattern(L"/m/a.mov", 10'000);
    MediaReader reader(L"/m/a.mov");
    Answers answers;
    reader.readAsync(0, 10, [](const MediaReadResult&) { throw std::runtime_error("thrown by a callback"); });
    reader.readAsync(0, 10, [](const MediaReadResult&) { throw 1; });
    reader.readAsync(20, 10, answers.at(20));
    EXPECT_EQ(bytes.substr(20, 10), answers.await(1)[0].bytes);
}

TEST_F(MediaReaderAsync, AnEmptyCallbackIsNoMistake)
{
    addPattern(L"/m/a.mov", 10'000);
    MediaReader reader(L"/m/a.mov");
    Answers answers;
    reader.readAsync(0, 10, MediaReader::Callback());
    reader.readAsync(20, 10, answers.at(20));
    EXPECT_EQ(1U, answers.await(1).size());
}

TEST_F(MediaReaderAsync, ACallbackMayReadOnAndWaitForIt)
{
    const std::string bytes = addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    Answers answers;
    std::string synchronous;
    std::string awaited;
    reader.readAsync(0, 10, [&](const MediaReadResult& result) {
        synchronous = readOf(reader, 1000, 500).bytes;
        awaited = textOf(reader.readAsync(50'000, 500).get().data.bytes());
        reader.readAsync(70'000, 500, answers.at(70'000));
        answers.at(0)(result);
    });
    const auto all = answers.await(2);
    ASSERT_EQ(2U, all.size());
    EXPECT_EQ(bytes.substr(70'000, 500), all[1].bytes);
    EXPECT_EQ(bytes.substr(1000, 500), synchronous);
    EXPECT_EQ(bytes.substr(50'000, 500), awaited);
}

TEST_F(MediaReaderAsync, ACallbackThatBlocksHoldsUpCallbacksOnly)
{
    const std::string bytes = addPattern(L"/m/a.mov", 100 * 4096);
    MediaReader reader(L"/m/a.mov");
    Gate entered;
    Gate leave;
    Answers answers;
    reader.readAsync(0, 10, [&](const MediaReadResult&) {
        entered.open();
        leave.pass();
    });
    ASSERT_TRUE(entered.pass());
    reader.readAsync(4096, 10, answers.at(4096));
    // More than the engine takes at once: somebody goes on starting them.
    std::vector<std::future<MediaReadResult>> futures;
    for (std::size_t i = 0; i < 100; ++i)
        futures.push_back(reader.readAsync(i * 4096, 4096));
    for (std::size_t i = 0; i < 100; ++i)
        EXPECT_EQ(bytes.substr(i * 4096, 4096), textOf(futures[i].get().data.bytes()));
    EXPECT_EQ(bytes.substr(5, 5), readOf(reader, 5, 5).bytes);
    EXPECT_EQ(0U, answers.count());
    leave.open();
    EXPECT_EQ(1U, answers.await(1).size());
}

// --- the end of a reader

TEST_F(MediaReaderEnd, EveryCallbackHasRunWhenTheReaderIsGone)
{
    const std::string bytes = addPattern(L"/m/a.mov", 3'000'000);
    Answers answers;
    {
        MediaReader reader(L"/m/a.mov");
        for (std::uint64_t i = 0; i < 200; ++i)
            reader.readAsync(i * 10'000, 9'000, answers.at(i * 10'000));
    }
    const auto all = answers.all();
    ASSERT_EQ(200U, all.size());
    for (const auto& answer : all) {
        if (answer.code == MediaErrorCode::none)
            EXPECT_TRUE(bytes.substr(answer.offset, 9'000) == answer.bytes);
        else
            EXPECT_EQ(MediaErrorCode::cancelled, answer.code);
    }
}

TEST_F(MediaReaderEnd, WhatWaitsIsCancelledAndWhatIsUnderWayIsAwaited)
{
    addLarge();
    hold();
    Answers answers;
    std::future<MediaReadResult> future;
    std::thread device;
    {
        MediaReader reader(L"/m/a.mov");
        askApart(reader, answers, 40);
        future = reader.readAsync(999 * apart, 10);
        // Nothing of what is under way ends before the reader has cancelled the rest.
        device = std::thread([this, &answers] {
            answers.await(40 - inEngineMax);
            completeUntil([&] { return answers.count() == 40; });
        });
    }
    const auto all = answers.all();
    device.join();
    EXPECT_EQ(MediaErrorCode::cancelled, future.get().error.code);
    ASSERT_EQ(40U, all.size());
    for (const auto& answer : all)
        EXPECT_EQ(answer.offset < inEngineMax * apart ? MediaErrorCode::none : MediaErrorCode::cancelled,
                  answer.code);
    EXPECT_EQ(inEngineMax, os.transfers().accepted());
}

TEST_F(MediaReaderEnd, AReadThatDoesNotEndIsGivenUp)
{
    addLarge();
    hold();
    Answers answers;
    std::future<MediaReadResult> future;
    {
        MediaReader reader(L"/m/a.mov");
        askApart(reader, answers, 1);
        future = reader.readAsync(7 * apart, 10);
        ASSERT_TRUE(os.transfers().awaitHeld(2));
    }
    EXPECT_EQ(MediaErrorCode::givenUp, future.get().error.code);
    ASSERT_EQ(1U, answers.count());
    EXPECT_EQ(MediaErrorCode::givenUp, answers.all()[0].code);
    // The device ends it after all: nobody is told a second time.
    os.transfers().completeAll();
    os.transfers().join();
    EXPECT_EQ(1U, answers.count());
}

TEST_F(MediaReaderEnd, ACallbackMayDestroyItsReader)
{
    addLarge();
    hold();
    Answers answers;
    Gate gone;
    auto reader = std::make_unique<MediaReader>(L"/m/a.mov");
    MediaReader* const raw = reader.get();
    raw->readAsync(500 * apart, 10, [&](const MediaReadResult& result) {
        answers.at(500 * apart)(result);
        reader.reset();
        gone.open();
    });
    ASSERT_TRUE(os.transfers().awaitHeld(1));
    for (std::uint64_t i = 0; i < 40; ++i)
        raw->readAsync(i * apart, 100, answers.at(i * apart));
    ASSERT_TRUE(os.transfers().awaitHeld(inEngineMax));
    os.transfers().setAutomatic(true);
    os.transfers().completeAll();
    ASSERT_TRUE(gone.pass());
    const auto all = answers.await(41);
    ASSERT_EQ(41U, all.size());
    EXPECT_EQ(500 * apart, all[0].offset);
}

TEST_F(MediaReaderEnd, TheLastReferenceMayGoWithACallback)
{
    addPattern(L"/m/a.mov", 10'000);
    Answers answers;
    {
        auto reader = std::make_shared<MediaReader>(L"/m/a.mov");
        reader->readAsync(0, 10,
                          [reader, &answers](const MediaReadResult& result) { answers.at(0)(result); });
    }
    EXPECT_EQ(MediaErrorCode::none, answers.await(1)[0].code);
    // Its handles go as well, on the thread of the callbacks.
    while (os.live().files != 0)
        std::this_thread::yield();
}

TEST_F(MediaReaderEnd, ACallbackThatReadsOnWhileTheReaderGoesIsAnswered)
{
    addPattern(L"/m/a.mov", 10'000);
    Answers answers;
    Gate entered;
    Gate leave;
    std::thread closer;
    {
        auto reader = std::make_unique<MediaReader>(L"/m/a.mov");
        MediaReader* const raw = reader.get();
        raw->readAsync(0, 10, [&, raw](const MediaReadResult&) {
            entered.open();
            leave.pass();
            // By now the reader is on its way out, or not yet: both must answer.
            answers.at(1)({{}, {readOf(*raw, 0, 10).code, 0, {}}});
            answers.at(2)(raw->readAsync(0, 10).get());
            raw->readAsync(0, 10, answers.at(3));
        });
        ASSERT_TRUE(entered.pass());
        closer = std::thread([gone = std::move(reader)]() mutable { gone.reset(); });
        leave.open();
    }
    closer.join();
    const auto all = answers.all();
    ASSERT_EQ(3U, all.size());
    for (const auto& answer : all)
        EXPECT_TRUE(answer.code == MediaErrorCode::none || answer.code == MediaErrorCode::cancelled);
}
