#include "Qz/Notifier.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Callback = iCallbackBase<int, NotifyMsg>;
using Handle = Qz::Ptr<iObject>;

Qz::Ptr<Callback> callback(std::function<int(NotifyMsg)> function)
{
    return new FunctionCallback<int, NotifyMsg>(std::move(function));
}

Qz::Ptr<Callback> appending(std::string& log, const std::string& text)
{
    return callback([&log, text](const NotifyMsg& message) {
        log += text + message.getText().str() + " ";
        return 1;
    });
}

const NotifyMsg message("m", nullptr);

}  // namespace

TEST(Notifier, ListenersOfTheTypeAreCalledInOrderOfRegistration)
{
    std::string log;
    Notifier notifier;
    const Handle a = notifier.addListener(appending(log, "a:"), 1);
    const Handle b = notifier.addListener(appending(log, "b:"), 2);
    const Handle c = notifier.addListener(appending(log, "c:"), 1);
    notifier.issueNotification(message, 1);
    EXPECT_EQ(log, "a:m c:m ");
}

TEST(Notifier, TheCallIsOverWhenTheIssueReturnsAndRunsOnTheIssuingThread)
{
    Notifier notifier;
    std::thread::id ranOn;
    const Handle handle = notifier.addListener(callback([&ranOn](const NotifyMsg&) {
                                                   ranOn = std::this_thread::get_id();
                                                   return 0;
                                               }),
                                               1);
    notifier.issueNotification(message, 1);
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(Notifier, TheMessageArrivesWithItsPayload)
{
    struct Payload : iObject
    {
    };
    const Handle payload(new Payload);
    Handle seen;
    Notifier notifier;
    const Handle handle = notifier.addListener(callback([&seen](const NotifyMsg& given) {
                                                   seen = given.getPayload();
                                                   return 0;
                                               }),
                                               1);
    notifier.issueNotification(NotifyMsg("text", payload), 1);
    EXPECT_EQ(seen, payload);
}

TEST(Notifier, TheEndOfTheHandleUnregisters)
{
    std::string log;
    Notifier notifier;
    Handle handle = notifier.addListener(appending(log, ""), 1);
    notifier.issueNotification(message, 1);
    handle.reset();
    notifier.issueNotification(message, 1);
    EXPECT_EQ(log, "m ");
}

TEST(Notifier, ACopiedHandleKeepsTheListenerUntilTheLastCopyEnds)
{
    std::string log;
    Notifier notifier;
    Handle handle = notifier.addListener(appending(log, ""), 1);
    Handle copy = handle;
    handle.reset();
    notifier.issueNotification(message, 1);
    copy.reset();
    notifier.issueNotification(message, 1);
    EXPECT_EQ(log, "m ");
}

TEST(Notifier, AHandleMayOutliveTheNotifier)
{
    std::string log;
    auto notifier = std::make_unique<Notifier>();
    Handle handle = notifier->addListener(appending(log, ""), 1);
    notifier.reset();
    handle.reset();
    EXPECT_EQ(log, "");
}

TEST(Notifier, ARecordRegisteredTwiceIsCalledTwiceAndUnregisteredOneByOne)
{
    std::string log;
    Notifier notifier;
    const Qz::Ptr<NotifierRecord> record(new CallbackInvoker<NotifyMsg>(appending(log, ""), 1));
    Handle first = notifier.registerInternal(record);
    const Handle second = notifier.registerInternal(record);
    notifier.issueNotification(message, 1);
    EXPECT_EQ(log, "m m ");
    first.reset();
    notifier.issueNotification(message, 1);
    EXPECT_EQ(log, "m m m ");
}

TEST(Notifier, AListenerMayAddAListenerWhichHearsTheNextMessage)
{
    std::string log;
    Notifier notifier;
    Handle added;
    const Handle handle = notifier.addListener(callback([&](const NotifyMsg&) {
                                                   log += "adder ";
                                                   if (!added)
                                                       added = notifier.addListener(appending(log, ""), 1);
                                                   return 0;
                                               }),
                                               1);
    notifier.issueNotification(message, 1);
    EXPECT_EQ(log, "adder ");
    notifier.issueNotification(message, 1);
    EXPECT_EQ(log, "adder adder m ");
}

TEST(Notifier, AListenerMayRemoveItself)
{
    int calls = 0;
    Notifier notifier;
    Handle handle;
    handle = notifier.addListener(callback([&](const NotifyMsg&) {
                                      handle.reset();
                                      return ++calls;
                                  }),
                                  1);
    notifier.issueNotification(message, 1);
    notifier.issueNotification(message, 1);
    EXPECT_EQ(calls, 1);
}

TEST(Notifier, AListenersEndMayUseTheNotifier)
{
    Notifier notifier;
    std::string log;
    Handle inner = notifier.addListener(appending(log, ""), 1);
    auto removesInner = std::shared_ptr<void>(nullptr, [&inner](void*) { inner.reset(); });
    Handle outer =
        notifier.addListener(callback([kept = std::move(removesInner)](const NotifyMsg&) { return 0; }), 1);
    outer.reset();
    EXPECT_FALSE(inner);
    notifier.issueNotification(message, 1);
    EXPECT_EQ(log, "");
}

TEST(Notifier, ANullRecordOrCallbackIsHarmless)
{
    Notifier notifier;
    EXPECT_FALSE(notifier.registerInternal(nullptr));
    const Handle handle = notifier.addListener(nullptr, 1);
    std::string log;
    const Handle other = notifier.addListener(appending(log, ""), 1);
    notifier.issueNotification(message, 1);
    EXPECT_EQ(log, "m ");
}

TEST(Notifier, ARecordForAnotherKindOfMessageIsPassedOver)
{
    Notifier notifier;
    const Handle plain = notifier.registerInternal(new NotifierRecord(1));
    int calls = 0;
    const Qz::Ptr<iCallbackBase<int, int>> counting(
        new FunctionCallback<int, int>([&calls](int) { return ++calls; }));
    const Handle other = notifier.registerInternal(new CallbackInvoker<int>(counting, 1));
    notifier.issueNotification(message, 1);
    EXPECT_EQ(calls, 0);
}

TEST(Notifier, ListenersComeAndGoWhileOtherThreadsIssue)
{
    Notifier notifier;
    std::atomic<int> calls{0};
    const auto counting = callback([&calls](const NotifyMsg&) { return ++calls; });
    const Handle steady = notifier.addListener(counting, 1);
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 500; ++round)
                notifier.issueNotification(message, 1);
        });
        threads.emplace_back([&] {
            for (int round = 0; round < 500; ++round)
                notifier.addListener(counting, 1).reset();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GE(calls, 1000);
    calls = 0;
    notifier.issueNotification(message, 1);
    EXPECT_EQ(calls, 1);
}
