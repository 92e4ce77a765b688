#include "Neighbour.h"

#include <typeinfo>

#include <gtest/gtest.h>

namespace {

struct Doubler : QzDC::Receiver<NeighbourCommand>
{
    int executeCommand(NeighbourCommand&, int& parameter) override { return parameter * 2; }
};

}  // namespace

TEST(SharedLibraries, AnObjectOfAnotherLibraryCastsBackToItsType)
{
    const Qz::Ptr<iObject> made = neighbourPayload(42);
    const auto payload = Qz::dynamicCast<NeighbourPayload>(made);
    ASSERT_TRUE(payload);
    EXPECT_EQ(payload->number, 42);
    EXPECT_FALSE(Qz::dynamicCast<NotifierRecord>(made));
}

TEST(SharedLibraries, ATemplateInstanceHasOneTypeInAllLibraries)
{
    int calls = 0;
    const auto record = neighbourRecord(1, calls);
    const NotifierRecord& object = *record;
    EXPECT_EQ(&typeid(object), &typeid(CallbackInvoker<NotifyMsg>));
}

TEST(SharedLibraries, ARecordMadeByAnotherLibraryIsCalled)
{
    int calls = 0;
    Notifier notifier;
    const auto handle = notifier.registerInternal(neighbourRecord(7, calls));
    notifier.issueNotification(NotifyMsg("text", nullptr), 7);
    EXPECT_EQ(calls, 1);
}

TEST(SharedLibraries, ACommandMadeByAnotherLibraryReachesTheReceiver)
{
    Doubler receiver;
    EXPECT_EQ(neighbourExecute(receiver, 21), 42);
}

TEST(SharedLibraries, ASingletonIsOneInAllLibraries)
{
    EXPECT_EQ(&neighbourInstance(), &Qz::SingletonHolder<NeighbourShared>::instance());
}
