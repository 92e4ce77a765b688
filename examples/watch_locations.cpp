// Tells which media locations can be reached, and tells it again whenever that changes, until its standard
// input ends.
//   watch_locations PROJECT_SPACE

#include "Qz/Notifier.h"
#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <thread>

namespace {

constexpr auto pause = std::chrono::milliseconds(200);

// Location's root to whether it can be reached. A disk that was unplugged leaves the folder that it was
// mounted on, where nobody may write.
using Reachable = std::map<std::string, bool>;

Reachable look()
{
    Reachable result;
    DriveId id;
    for (bool more = DiskManager::getFirstMaterialVolume(id); more;
         more = DiskManager::getNextMaterialVolume(id)) {
        // Drives are counted: this one stays, whoever takes it out of the registry meanwhile.
        const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(id);
        if (drive)
            result[toUTF8(drive->getRootLocation()).str()] =
                DiskManager::writableVolume(drive->getRootLocation());
    }
    return result;
}

void show(const Reachable& locations)
{
    for (const auto& [root, online] : locations) {
        VolumeInfo info;
        const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(fromUTF8(root.c_str()));
        if (online && drive && drive->getInfo(&info))
            std::printf("online %s %llu bytes free\n", root.c_str(),
                        static_cast<unsigned long long>(info.freeBytes));
        else
            std::printf("offline %s\n", root.c_str());
    }
    std::fflush(stdout);
}

// The registry does not watch disks: the application looks, and tells those who listen.
void watch(Reachable before, const std::atomic<bool>& ends)
{
    while (!ends) {
        std::this_thread::sleep_for(pause);
        const Reachable present = look();
        if (present == before)
            continue;
        before = present;
        DiskManager::issueMediaOnlineChangeNotification();
    }
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 2) {
        std::fprintf(stderr, "usage: watch_locations PROJECT_SPACE\n");
        return 2;
    }
    FsysInitialize();
    DiskManager::init(fromUTF8(arguments[1]), true);
    {
        // Any part of the application may listen; it hears of changes until the handle goes.
        const Qz::Ptr<iCallbackBase<int, NotifyMsg>> listener(
            new FunctionCallback<int, NotifyMsg>([](const NotifyMsg& message) {
                std::printf("%s\n", message.getText().c_str());
                show(look());
                return 0;
            }));
        const Qz::Ptr<iObject> handle = DiskManager::addListener(listener);
        const Reachable first = look();
        show(first);
        std::atomic<bool> ends{false};
        std::thread input([&ends] {
            while (std::getchar() != EOF) {
            }
            ends = true;
        });
        watch(first, ends);
        input.join();
    }
    Shutdown::run(Shutdown::eNormalExit);
    return 0;
}
