// Records a clip of ten frames into a media location and reads it back.
//   record_clip PROJECT_SPACE LOCATION_FOLDER

#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "media/MediaReader.h"
#include "media/MediaWriter.h"

#include <cstdio>
#include <vector>

namespace {

constexpr std::size_t frameBytes = 691200;

// The location at folder, with its media folders; null when it cannot be used.
Qz::Ptr<MediaDrive> locationAt(const LightweightString<wchar_t>& folder)
{
    const LightweightString<wchar_t> root = folder.endsWith(L"/") ? folder : folder + L"/";
    DiskManager::addMediaLocation(root);
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(root);
    return drive && drive->prepareForMedia() ? drive : Qz::Ptr<MediaDrive>();
}

bool record(const Cookie& clip, const Qz::Ptr<MediaDrive>& drive)
{
    MediaWriter writer(clip, drive->getFsysLocation(clip, L"raw"));
    for (unsigned number = 0; number < 10; ++number)
        writer.write(std::vector<std::byte>(frameBytes, std::byte(number)));
    // A failure is never forgotten, so it is enough to ask at the end.
    const MediaRecording recorded = writer.finish();
    if (!recorded.complete)
        std::fprintf(stderr, "%s\n", recorded.error.text.c_str());
    return recorded.complete;
}

bool readBack(const Cookie& clip)
{
    MediaReader reader(clip, DecodeFormat(eHighRes));
    std::vector<std::byte> frame(frameBytes);
    for (unsigned number = 0; number < 10; ++number)
        if (reader.read(number * frameBytes, frame) != frameBytes || frame.back() != std::byte(number))
            return false;
    std::printf("%s\n", toUTF8(reader.path()).c_str());
    return true;
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 3) {
        std::fprintf(stderr, "usage: record_clip PROJECT_SPACE LOCATION_FOLDER\n");
        return 2;
    }
    FsysInitialize();
    DiskManager::init(fromUTF8(arguments[1]), true);
    const Qz::Ptr<MediaDrive> drive = locationAt(fromUTF8(arguments[2]));
    const Cookie clip = Cookie::makeNew();
    const bool good = drive && record(clip, drive) && readBack(clip);
    Shutdown::run(Shutdown::eNormalExit);
    return good ? 0 : 1;
}
