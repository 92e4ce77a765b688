#include "Qz/InternalRefCount.h"

#include <thread>
#include <vector>

#include "Qz/iMemHolder.h"
#include "Qz/iObject.h"

#include <gtest/gtest.h>

namespace {

struct Record : iObject
{
    int value = 0;
};

}  // namespace

static_assert(std::is_base_of_v<iObject, iMemHolder>);

TEST(InternalRefCount, ANewObjectHasNoReferences) { EXPECT_EQ(Record().refCount(), 0u); }

TEST(InternalRefCount, DroppingTheLastReferenceIsToldToTheDropper)
{
    const Record record;
    record.addRef();
    record.addRef();
    EXPECT_FALSE(record.dropRef());
    EXPECT_TRUE(record.dropRef());
    EXPECT_EQ(record.refCount(), 0u);
}

TEST(InternalRefCount, ACopyStartsAtZero)
{
    Record record;
    record.value = 5;
    record.addRef();
    const Record copy(record);
    EXPECT_EQ(copy.refCount(), 0u);
    EXPECT_EQ(copy.value, 5);
    EXPECT_EQ(record.refCount(), 1u);
}

TEST(InternalRefCount, AssignmentLeavesBothCountsAlone)
{
    Record from;
    from.value = 5;
    from.addRef();
    Record to;
    to.addRef();
    to.addRef();
    to = from;
    EXPECT_EQ(to.value, 5);
    EXPECT_EQ(to.refCount(), 2u);
    EXPECT_EQ(from.refCount(), 1u);
}

TEST(InternalRefCount, ExactlyOneOfManyThreadsDropsTheLastReference)
{
    const Record record;
    std::atomic<int> last{0};
    std::vector<std::thread> threads;
    record.addRef();
    for (int i = 0; i < 4; ++i) {
        record.addRef();
        threads.emplace_back([&] {
            for (int round = 0; round < 10000; ++round) {
                record.addRef();
                last += record.dropRef() ? 1 : 0;
            }
            last += record.dropRef() ? 1 : 0;
        });
    }
    last += record.dropRef() ? 1 : 0;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(last, 1);
    EXPECT_EQ(record.refCount(), 0u);
}
