// What the log says of links that lead out of all media locations.

#include "EngineFixture.h"
#include "FileSpy.h"
#include "fsys/DiskManager.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class LinkTargets : public EngineTest
{
protected:
    LinkTargets()
    {
        DiskManager::reInit(true);
        os.files().addFolder(L"/m/Material");
        DriveId id;
        EXPECT_TRUE(DiskManager::addMaterialVolume(L"/m/", id, false));
    }
    ~LinkTargets() override { DiskManager::reInit(true); }

    // Opens a link, whose target may be missing.
    void follow(const std::string& target)
    {
        os.files().addFile(L"/m/Material/link.mov", linkTo(target));
        testing::internal::CaptureStdout();
        FsysFile* file = nullptr;
        if (FsysOpen(&file, L"/m/Material/link.mov", 0, fsysOpenRead, nullptr) == 1)
            FsysClose(file, nullptr);
        testing::internal::GetCapturedStdout();
    }
    static std::string lineFor(const std::string& target)
    {
        return "fsys: the link /m/Material/link.mov leads to " + target + ", which no media location holds\n";
    }
};

}  // namespace

TEST_F(LinkTargets, ThatALocationHoldsAreNotTold)
{
    os.files().addFile(L"/m/elsewhere/real.mov", pattern(1024));
    follow("/m/elsewhere/real.mov");
    follow("/m/..elsewhere/missing..mov");
    EXPECT_THAT(logged.logs(), IsEmpty());
}

TEST_F(LinkTargets, OutsideOfAllLocationsAreToldOnceForEachFolder)
{
    os.files().addDrive(L"/far/");
    os.files().addFile(L"/far/one/real.mov", pattern(1024));
    follow("/far/one/real.mov");
    follow("/far/one/real.mov");
    follow("/far/one/missing.mov");
    follow("/far/two/missing.mov");
    EXPECT_THAT(logged.logs(), ElementsAre(lineFor("/far/one/real.mov"), lineFor("/far/two/missing.mov")));
}

TEST_F(LinkTargets, InAFolderWhoseNameOnlyBeginsLikeALocationAreTold)
{
    follow("/ma/real.mov");
    EXPECT_THAT(logged.logs(), ElementsAre(lineFor("/ma/real.mov")));
}

TEST_F(LinkTargets, ThatAreRelativeOrClimbOrAreEmptyAreTold)
{
    follow("real.mov");
    follow("/m/up/../../far/three/real.mov");
    follow("/m/up/..");
    EXPECT_THAT(logged.logs(), ElementsAre(lineFor("real.mov"), lineFor("/m/up/../../far/three/real.mov"),
                                           lineFor("/m/up/..")));
}

TEST_F(LinkTargets, AreNotToldWhileThereIsNoLocation)
{
    DiskManager::reInit(true);
    follow("/far/four/real.mov");
    EXPECT_THAT(logged.logs(), IsEmpty());
}
