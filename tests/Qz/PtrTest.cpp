#include "Qz/Ptr.h"

#include <thread>
#include <vector>

#include "Qz/iObject.h"

#include <gtest/gtest.h>

using Qz::Ptr;

namespace {

struct Base : iObject
{
    explicit Base(int& ends) : ends_(ends) {}
    ~Base() override { ++ends_; }
    int value = 0;

private:
    int& ends_;
};

struct Derived : Base
{
    using Base::Base;
};

struct Other : iObject
{
};

// Without a count of its own, and deliberately without a virtual destructor.
struct PlainBase
{
    int value = 1;
};

struct PlainDerived : PlainBase
{
    explicit PlainDerived(int& ends) : ends_(ends) {}
    ~PlainDerived() { ++ends_; }

private:
    int& ends_;
};

struct Incomplete;
struct HoldsIncomplete
{
    HoldsIncomplete();
    ~HoldsIncomplete();
    HoldsIncomplete(const HoldsIncomplete&) = delete;
    HoldsIncomplete& operator=(const HoldsIncomplete&) = delete;
    Ptr<Incomplete> held;
};
struct Incomplete : Qz::InternalRefCount
{
};
HoldsIncomplete::HoldsIncomplete() : held(new Incomplete) {}
HoldsIncomplete::~HoldsIncomplete() = default;

}  // namespace

TEST(Ptr, ADefaultOneIsNull)
{
    const Ptr<Base> null;
    EXPECT_FALSE(null);
    EXPECT_EQ(null, nullptr);
    EXPECT_EQ(null.get(), nullptr);
    EXPECT_EQ(Ptr<Base>(nullptr), null);
    EXPECT_EQ(Ptr<Base>(static_cast<Base*>(nullptr)), null);
}

TEST(Ptr, TheLastOneDeletesTheObject)
{
    int ends = 0;
    {
        const Ptr<Base> first(new Base(ends));
        {
            const Ptr<Base> second(first);
            EXPECT_EQ(first->refCount(), 2u);
        }
        EXPECT_EQ(first->refCount(), 1u);
        EXPECT_EQ(ends, 0);
    }
    EXPECT_EQ(ends, 1);
}

TEST(Ptr, SeveralMayBeMadeFromOneRawPointerOfACountedType)
{
    int ends = 0;
    {
        auto* raw = new Base(ends);
        const Ptr<Base> first(raw);
        {
            const Ptr<Base> second(raw);
        }
        EXPECT_EQ(ends, 0);
    }
    EXPECT_EQ(ends, 1);
}

TEST(Ptr, MovingLeavesTheCountAndEmptiesTheSource)
{
    int ends = 0;
    Ptr<Base> from(new Base(ends));
    const Ptr<Base> to(std::move(from));
    EXPECT_FALSE(from);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(to->refCount(), 1u);
}

TEST(Ptr, AssigningDropsTheOldObject)
{
    int ends = 0;
    Ptr<Base> pointer(new Base(ends));
    pointer = Ptr<Base>(new Base(ends));
    EXPECT_EQ(ends, 1);
    pointer = nullptr;
    EXPECT_EQ(ends, 2);
    pointer = new Base(ends);
    pointer.reset();
    EXPECT_EQ(ends, 3);
}

TEST(Ptr, AssigningToItselfKeepsTheObject)
{
    int ends = 0;
    Ptr<Base> pointer(new Base(ends));
    const Ptr<Base>& same = pointer;
    pointer = same;
    EXPECT_EQ(pointer->refCount(), 1u);
    Ptr<Base>& movable = pointer;
    pointer = std::move(movable);
    ASSERT_TRUE(pointer);
    EXPECT_EQ(pointer->refCount(), 1u);
    EXPECT_EQ(ends, 0);
}

TEST(Ptr, ADerivedPointerConvertsToItsBaseByCopyAndByMove)
{
    int ends = 0;
    {
        Ptr<Derived> derived(new Derived(ends));
        Ptr<Base> base = derived;
        EXPECT_EQ(base.get(), derived.get());
        EXPECT_EQ(derived->refCount(), 2u);
        const Ptr<iObject> object = std::move(derived);
        EXPECT_FALSE(derived);  // NOLINT(bugprone-use-after-move)
        EXPECT_EQ(base->refCount(), 2u);
        base = nullptr;
        EXPECT_EQ(ends, 0);
    }
    EXPECT_EQ(ends, 1);
}

TEST(Ptr, APointerToConstSharesTheCount)
{
    int ends = 0;
    Ptr<Base> pointer(new Base(ends));
    Ptr<const Base> reader = pointer;
    pointer.reset();
    EXPECT_EQ(ends, 0);
    EXPECT_EQ(reader->value, 0);
    reader.reset();
    EXPECT_EQ(ends, 1);
}

TEST(Ptr, ComparingWithARawPointerTakesNoReference)
{
    int ends = 0;
    auto* fresh = new Base(ends);  // its count is zero: a wrapper would delete it
    const Ptr<Base> null;
    EXPECT_FALSE(null == fresh);
    EXPECT_TRUE(fresh != null);
    EXPECT_EQ(ends, 0);
    const Ptr<Base> pointer(fresh);
    EXPECT_TRUE(pointer == fresh);
}

TEST(Ptr, AnObjectWithoutACountGetsAnExternalOne)
{
    int ends = 0;
    Ptr<PlainDerived> first(new PlainDerived(ends));
    Ptr<PlainDerived> second = first;
    first.reset();
    EXPECT_EQ(ends, 0);
    second.reset();
    EXPECT_EQ(ends, 1);
}

TEST(Ptr, AnExternallyCountedObjectIsDeletedAsWhatItWasMadeAs)
{
    int ends = 0;
    Ptr<PlainDerived> derived(new PlainDerived(ends));
    Ptr<PlainBase> copied = derived;
    Ptr<PlainBase> moved = std::move(derived);
    copied.reset();
    EXPECT_EQ(moved->value, 1);
    EXPECT_EQ(ends, 0);
    moved.reset();
    EXPECT_EQ(ends, 1);
}

TEST(Ptr, AMemberMayPointToATypeThatIsDefinedLater)
{
    const HoldsIncomplete holder;
    EXPECT_EQ(holder.held->refCount(), 1u);
}

TEST(Ptr, ADynamicCastSharesTheCountOrIsNull)
{
    int ends = 0;
    const Ptr<iObject> object(new Derived(ends));
    const auto derived = Qz::dynamicCast<Derived>(object);
    ASSERT_TRUE(derived);
    EXPECT_EQ(derived->refCount(), 2u);
    EXPECT_FALSE(Qz::dynamicCast<Other>(object));
    EXPECT_FALSE(Qz::dynamicCast<Derived>(Ptr<iObject>()));
}

TEST(Ptr, TheThreadThatDeletesSeesTheWritesOfTheOthers)
{
    struct Slots : iObject
    {
        explicit Slots(int& sum) : sum_(sum) {}
        ~Slots() override
        {
            for (const int value : values)
                sum_ += value;
        }
        int values[4] = {};

    private:
        int& sum_;
    };
    int sum = 0;
    Ptr<Slots> slots(new Slots(sum));
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < 4; ++i)
        threads.emplace_back([mine = slots, i]() mutable {
            mine->values[i] = 1;
            mine.reset();
        });
    slots.reset();
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(sum, 4);
}
