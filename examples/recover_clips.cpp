// Finishes the recordings that were cut off, by a crash or a loss of power, in all media locations.
//   recover_clips PROJECT_SPACE

#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "media/Recovery.h"

#include <cstdio>

namespace {

// False when it could not be finished; the file is then as it was.
bool recover(const UnfinishedRecording& recording)
{
    const std::string file = toUTF8(recording.path).str();
    if (recording.inUse) {
        std::printf("in use %s\n", file.c_str());
        return true;
    }
    // From the first byte on that never reached the disk nothing is of use.
    if (recording.goodBytes == 0) {
        const MediaError error = removeUnfinished(recording);
        std::printf("%s %s\n", error ? "kept" : "removed", file.c_str());
        return !error;
    }
    if (const MediaError error = finishUnfinished(recording)) {
        std::fprintf(stderr, "%s\n", error.text.c_str());
        return false;
    }
    std::printf("finished %s, %llu of %llu bytes\n", toUTF8(recording.finalPath).c_str(),
                static_cast<unsigned long long>(recording.goodBytes),
                static_cast<unsigned long long>(recording.bytes));
    return true;
}

bool recoverAll()
{
    bool all = true;
    DriveId location;
    for (bool more = DiskManager::getFirstMaterialVolume(location); more;
         more = DiskManager::getNextMaterialVolume(location))
        for (const UnfinishedRecording& recording : findUnfinished(location))
            all = recover(recording) && all;
    return all;
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 2) {
        std::fprintf(stderr, "usage: recover_clips PROJECT_SPACE\n");
        return 2;
    }
    FsysInitialize();
    DiskManager::init(fromUTF8(arguments[1]), true);
    const bool all = recoverAll();
    Shutdown::run(Shutdown::eNormalExit);
    return all ? 0 : 1;
}
