#include "fsys/VolumeList.h"

#include "RegistryFixture.h"

#include <type_traits>

namespace {

class VolumeListTest : public RegistryFixture
{
protected:
    ~VolumeListTest() override { drives.clear(); }

    Qz::Ptr<MediaDrive> append(char id)
    {
        const Qz::Ptr<MediaDrive> drive = new MediaDrive(DriveId(id), L"/x", iDiskDrive::eLocal);
        drives.append(drive);
        return drive;
    }

    VolumeList drives;
};

TEST_F(VolumeListTest, ANewListHasAnEmptySequence)
{
    ASSERT_TRUE(drives.take());
    EXPECT_EQ(drives.take()->size(), 0u);
    EXPECT_FALSE(drives.remove(DriveId('1')));
}

TEST_F(VolumeListTest, ASequenceStaysAsItWasWhenItWasTaken)
{
    append('1');
    append('2');
    const VolumeList::Snapshot before = drives.take();
    EXPECT_TRUE(drives.remove(DriveId('1')));
    append('3');
    ASSERT_EQ(before->size(), 2u);
    EXPECT_EQ(before->at(0)->getId(), DriveId('1'));
    EXPECT_EQ(before->at(1)->getId(), DriveId('2'));
    const VolumeList::Snapshot after = drives.take();
    ASSERT_EQ(after->size(), 2u);
    EXPECT_EQ(after->at(0)->getId(), DriveId('2'));
    EXPECT_EQ(after->at(1)->getId(), DriveId('3'));
}

TEST_F(VolumeListTest, ADriveLivesAsLongAsASequenceHoldsIt)
{
    const Qz::Ptr<MediaDrive> drive = append('1');
    VolumeList::Snapshot before = drives.take();
    drives.clear();
    EXPECT_EQ(drive->refCount(), 2u);
    before.reset();
    EXPECT_EQ(drive->refCount(), 1u);
}

TEST_F(VolumeListTest, OnlyTheFirstOfEqualIdsIsRemoved)
{
    const Qz::Ptr<MediaDrive> first = append('1');
    const Qz::Ptr<MediaDrive> second = append('1');
    EXPECT_TRUE(drives.remove(DriveId('1')));
    EXPECT_EQ(drives.take()->at(0), second);
}

// Threads may look drives up while the process ends.
static_assert(std::is_trivially_destructible_v<VolumeList>);

}  // namespace
