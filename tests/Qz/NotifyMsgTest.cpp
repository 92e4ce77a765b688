#include "Qz/NotifyMsg.h"

#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Payload : iObject
{
};

// Interned before main, as libraries do with their message names.
const unsigned internedEarly = NotifyMsgTypeDictionary::instance().intern("NotifyMsgTest early");

NotifyMsgTypeDictionary& dictionary() { return NotifyMsgTypeDictionary::instance(); }

}  // namespace

TEST(NotifyMsg, ItKeepsTextAndPayload)
{
    const Qz::Ptr<iObject> payload(new Payload);
    const NotifyMsg message("SysCacheAdd", payload);
    EXPECT_EQ(message.getText(), "SysCacheAdd");
    EXPECT_EQ(message.getPayload(), payload);
}

TEST(NotifyMsg, ThePayloadMayBeNull) { EXPECT_FALSE(NotifyMsg("text", nullptr).getPayload()); }

TEST(NotifyMsgTypeDictionary, ItIsUsableBeforeMain)
{
    EXPECT_NE(internedEarly, 0u);
    EXPECT_EQ(dictionary().intern("NotifyMsgTest early"), internedEarly);
}

TEST(NotifyMsgTypeDictionary, NewNamesGetRisingNumbers)
{
    const unsigned first = dictionary().intern("NotifyMsgTest first");
    EXPECT_EQ(dictionary().intern("NotifyMsgTest second"), first + 1);
    EXPECT_EQ(dictionary().intern("NotifyMsgTest first"), first);
}

TEST(NotifyMsgTypeDictionary, NamesDifferByCase)
{
    EXPECT_NE(dictionary().intern("NotifyMsgTest case"), dictionary().intern("NotifyMsgTest CASE"));
}

TEST(NotifyMsgTypeDictionary, ANumberLeadsBackToItsName)
{
    EXPECT_EQ(dictionary().nameOf(internedEarly), "NotifyMsgTest early");
    EXPECT_TRUE(dictionary().nameOf(0).isNull());
    EXPECT_TRUE(dictionary().nameOf(0xFFFFFFFFu).isNull());
}

TEST(NotifyMsgTypeDictionary, ThreadsThatInternTheSameNamesGetTheSameNumbers)
{
    std::vector<std::vector<unsigned>> numbers(4);
    std::vector<std::thread> threads;
    for (std::vector<unsigned>& mine : numbers)
        threads.emplace_back([&mine] {
            for (int i = 0; i < 50; ++i)
                mine.push_back(dictionary().intern("NotifyMsgTest thread " + std::to_string(i)));
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const std::vector<unsigned>& other : numbers)
        EXPECT_EQ(other, numbers[0]);
    EXPECT_EQ(std::set<unsigned>(numbers[0].begin(), numbers[0].end()).size(), 50u);
}
