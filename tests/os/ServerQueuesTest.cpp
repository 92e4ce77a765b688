#include "os/linux/ServerQueues.h"

#include "TestServer.h"
#include "common/TemporaryFolder.h"

#include <array>
#include <fcntl.h>
#include <gtest/gtest.h>

namespace {

// Transfers of files on two servers.
class ServerQueuesTest : public testing::Test
{
protected:
    Qz::Ptr<LinuxAsyncContext> transferOn(int server)
    {
        const Qz::Ptr<SharedDescriptor>& file = files_.at(static_cast<std::size_t>(server));
        Qz::Ptr<LinuxAsyncContext> context(new LinuxAsyncContext(nullptr));
        context->begin(file, Transfer(file.get(), TransferKind::read, 0, memory_.data(), 1));
        begun_.push_back(context);
        return context;
    }
    [[nodiscard]] const void* identity(int server) const
    {
        return files_.at(static_cast<std::size_t>(server))->server()->identity();
    }
    void TearDown() override
    {
        for (const Qz::Ptr<LinuxAsyncContext>& context : begun_)
            context->abandon();
    }

    ServerQueues queues{2};

private:
    Qz::Ptr<SharedDescriptor> makeFile(const std::string& name)
    {
        return Qz::Ptr<SharedDescriptor>(
            new SharedDescriptor(::open(folder_.file(name).c_str(), O_RDWR | O_CLOEXEC), testServer()));
    }

    TemporaryFolder folder_;
    std::array<char, 1> memory_{};
    std::array<Qz::Ptr<SharedDescriptor>, 2> files_{makeFile("a"), makeFile("b")};
    std::vector<Qz::Ptr<LinuxAsyncContext>> begun_;
};

}  // namespace

TEST_F(ServerQueuesTest, EachServerHasItsOwnPlaces)
{
    EXPECT_TRUE(queues.admit(transferOn(0).get()));
    EXPECT_TRUE(queues.admit(transferOn(0).get()));
    EXPECT_FALSE(queues.admit(transferOn(0).get()));
    EXPECT_TRUE(queues.admit(transferOn(1).get()));
}

TEST_F(ServerQueuesTest, ThoseThatWaitFollowInOrder)
{
    EXPECT_TRUE(queues.admit(transferOn(0).get()));
    EXPECT_TRUE(queues.admit(transferOn(0).get()));
    const auto third = transferOn(0);
    const auto fourth = transferOn(0);
    EXPECT_FALSE(queues.admit(third.get()));
    EXPECT_FALSE(queues.admit(fourth.get()));
    EXPECT_EQ(queues.leave(identity(1)), nullptr);
    EXPECT_EQ(queues.leave(identity(0)), third.get());
    EXPECT_EQ(queues.leave(identity(0)), fourth.get());
    EXPECT_EQ(queues.leave(identity(0)), nullptr);
    EXPECT_TRUE(queues.admit(transferOn(0).get())) << "one place is free again";
    EXPECT_FALSE(queues.admit(transferOn(0).get()));
}

TEST_F(ServerQueuesTest, ThoseThatWaitCanBeTakenOut)
{
    EXPECT_TRUE(queues.admit(transferOn(0).get()));
    EXPECT_TRUE(queues.admit(transferOn(0).get()));
    const auto third = transferOn(0);
    EXPECT_FALSE(queues.admit(third.get()));
    EXPECT_EQ(queues.takeWaiting(identity(1)), nullptr);
    EXPECT_EQ(queues.takeWaiting(identity(0)), third.get());
    EXPECT_EQ(queues.takeWaiting(identity(0)), nullptr);
}
