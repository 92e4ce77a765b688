// Reads the first bytes of a clip, found by its cookie, through the engine.
//   read_clip PROJECT_SPACE COOKIE

#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "fsys/SystemCache.h"

#include <cstdio>
#include <future>

namespace {

// What the completion function is given back: a promise that the main thread waits for.
struct Arrival : public iObject
{
    std::promise<Qz::Ptr<iMemHolder>> data;
};

void onData(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
{
    static_cast<Arrival&>(*context).data.set_value(status == eRequestSuccess ? data : Qz::Ptr<iMemHolder>());
}

int readFirstBytes(const LightweightString<wchar_t>& path)
{
    FsysFile* file = nullptr;
    if (FsysOpen(&file, path, 1U << 20, fsysOpenRead, nullptr) != 1)
        return 1;
    const Qz::Ptr<Arrival> arrival(new Arrival);
    Qz::Ptr<iObject> context = arrival;
    int result = 1;
    if (file->DirectRead(0, 16, true, &onData, context) == 1) {
        // The view keeps its memory alive, also after the file is closed.
        if (const Qz::Ptr<iMemHolder> data = arrival->data.get_future().get()) {
            for (unsigned i = 0; i < data->getUsed(); ++i)
                std::printf("%02x ", data->getBuffer()[i]);
            std::printf("\n");
            result = 0;
        }
    }
    FsysClose(file, nullptr);
    return result;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: read_clip PROJECT_SPACE COOKIE\n");
        return 2;
    }
    FsysInitialize();
    DiskManager::init(fromUTF8(argv[1]), true);
    LightweightString<wchar_t> path;
    const Cookie clip(LightweightString<char>(argv[2]), true);
    int result = 1;
    if (clip.valid() && SystemCache::findFileForCookie(clip, path, DecodeFormat(eHighRes)) && !path.empty())
        result = readFirstBytes(path);
    else
        std::fprintf(stderr, "no media of %s is reachable\n", argv[2]);
    Shutdown::run(Shutdown::eNormalExit);
    return result;
}
