// Records a clip, reads it back, compares, and looks whether program and libraries share what they must
// share.
//   consumer FOLDER     an empty folder for the project and the media

#include "Qz/Notifier.h"
#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "fsys/SystemCache.h"
#include "media/MediaReader.h"
#include "media/MediaWriter.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

int failures = 0;

void expect(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "not so: %s\n", what);
        ++failures;
    }
}

// Bytes that do not repeat, of sizes that fit no block.
std::vector<std::byte> content()
{
    std::vector<std::byte> bytes(3'456'789);
    unsigned state = 1;
    for (std::byte& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = std::byte(state >> 24);
    }
    return bytes;
}

Qz::Ptr<MediaDrive> locationAt(const std::string& folder)
{
    const LightweightString<wchar_t> root = fromUTF8((folder + "/").c_str());
    DiskManager::addMediaLocation(root);
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(root);
    return drive && drive->prepareForMedia() ? drive : Qz::Ptr<MediaDrive>();
}

void recordAndReadBack(const Cookie& clip, const Qz::Ptr<MediaDrive>& drive)
{
    const std::vector<std::byte> bytes = content();
    MediaWriter writer(clip, drive->getFsysLocation(clip, L"raw"));
    for (std::size_t at = 0; at < bytes.size(); at += 1'000'000)
        writer.write(std::span(bytes).subspan(at, std::min<std::size_t>(1'000'000, bytes.size() - at)));
    expect(writer.finish().complete, "the recording is complete");

    MediaReader reader(clip, DecodeFormat(eHighRes));
    std::vector<std::byte> back(bytes.size());
    expect(reader.size() == bytes.size(), "the file is as long as what was written");
    expect(reader.read(0, back) == back.size() && back == bytes, "the file holds what was written");
}

// The library finds the listener by dynamic_cast to a template that only this program instantiated in full,
// and the listener finds the payload by dynamic_cast to a class of the library.
void recordWithListener(const Cookie& clip, const Qz::Ptr<MediaDrive>& drive)
{
    int told = 0;
    const Qz::Ptr<iCallbackBase<int, NotifyMsg>> listener(
        new FunctionCallback<int, NotifyMsg>([&told](const NotifyMsg& message) {
            const Qz::Ptr<iObject> payload = message.getPayload();
            return told += dynamic_cast<FsysDirectoryEntry*>(payload.get()) ? 1 : 100;
        }));
    const Qz::Ptr<iObject> listening =
        SystemCache::instance().addListener(listener, static_cast<int>(SystemCache::fileAddedMsgType_));
    recordAndReadBack(clip, drive);
    expect(told == 1, "a listener of the program hears of the recording, once");
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 2)
        return 2;
    FsysInitialize();
    DiskManager::init(fromUTF8(arguments[1]), true);
    const Qz::Ptr<MediaDrive> drive = locationAt(arguments[1]);
    expect(bool(drive), "the folder can be a media location");
    expect(&Qz::SingletonHolder<SystemCache>::instance() == &SystemCache::instance(),
           "a template's one instance is the same in the program and in the library");
    if (drive)
        recordWithListener(Cookie::makeNew(), drive);
    Shutdown::run(Shutdown::eNormalExit);
    return failures ? 1 : 0;
}
