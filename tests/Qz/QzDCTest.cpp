#include "Qz/QzDC.h"

#include <optional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Tag
{
};

struct Context
{
    int number = 0;
};

using Command = QzDC::SmplCmd<Context, Tag, QzDC::ThreadSafetyTraits::ThreadSafe>;

struct Recorder : QzDC::Receiver<Command>
{
    int executeCommand(Command&, Context& context) override
    {
        seen.push_back(context.number);
        context.number = -1;
        return answer;
    }
    std::vector<int> seen;
    int answer = 1;
};

Qz::ObjectPool& pool()
{
    return Qz::ObjectPool::named("QzDC::SimpleCommandRep", sizeof(QzDC::SimpleCommandRep<Command>));
}

}  // namespace

TEST(QzDC, ExecutingReachesTheReceiverWithTheCallersParameter)
{
    Recorder receiver;
    Command command(&receiver);
    Context context{7};
    EXPECT_EQ(command.execute(context), 1);
    EXPECT_EQ(receiver.seen, std::vector<int>{7});
    EXPECT_EQ(context.number, -1);
}

TEST(QzDC, TheReceiversAnswerIsReturned)
{
    Recorder receiver;
    receiver.answer = 0;
    Context context;
    EXPECT_EQ(Command(&receiver).execute(context), 0);
}

TEST(QzDC, ACommandDoesNotOwnItsReceiver)
{
    struct Ending : Recorder
    {
        explicit Ending(int& count) : ends(count) {}
        ~Ending() override { ++ends; }
        int& ends;
    };
    int ends = 0;
    Qz::Ptr<QzDC::Receiver<Command>> receiver(new Ending(ends));
    const Command command(receiver.get());
    const Command copy(command);
    receiver.reset();
    EXPECT_EQ(ends, 1);
}

TEST(QzDC, CopiesShareOneBlockOfThePoolWhichGoesBackWithTheLast)
{
    Recorder receiver;
    const std::size_t before = pool().blocksInUse();
    std::optional<Command> command(&receiver);
    std::optional<Command> copy(command);
    EXPECT_EQ(pool().blocksInUse(), before + 1);
    command.reset();
    EXPECT_EQ(pool().blocksInUse(), before + 1);
    copy.reset();
    EXPECT_EQ(pool().blocksInUse(), before);
}

TEST(QzDC, CopiesMayBeExecutedAndDroppedOnAnyThread)
{
    struct Counter : QzDC::Receiver<Command>
    {
        int executeCommand(Command&, Context&) override { return ++calls; }
        std::atomic<int> calls{0};
    };
    const std::size_t before = pool().blocksInUse();
    Counter receiver;
    {
        const Command command(&receiver);
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([copy = command]() mutable {
                for (int round = 0; round < 500; ++round) {
                    Command another(copy);
                    Context context;
                    another.execute(context);
                }
            });
        for (std::thread& thread : threads)
            thread.join();
    }
    EXPECT_EQ(receiver.calls, 2000);
    EXPECT_EQ(pool().blocksInUse(), before);
}
