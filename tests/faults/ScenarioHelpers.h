#pragma once

#include "Stage.h"

#include "Qz/Cookie.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "fsys/FsysFile.h"
#include "fsys/MaterialFilename.h"
#include "fsys/SystemCache.h"
#include "media/MediaError.h"
#include "os/LastError.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

// What several scenarios do.

// Bytes without a zero and without a pattern, the same for the same seed.
inline std::string mediaBytes(std::size_t size, std::uint64_t seed)
{
    std::string bytes(size, '\0');
    std::uint64_t state = seed * 0x9E3779B97F4A7C15ULL + 1;
    for (char& byte : bytes) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        byte = static_cast<char>(state % 255 + 1);
    }
    return bytes;
}

inline Cookie clipNumber(unsigned number) { return {CookieTypeVision, 0xC11B00 + number, 0}; }

// Where a clip's file lies on the stage.
inline std::string clipFile(unsigned number, const std::string& ending = ".mov")
{
    return "Material/" + toUTF8(clipNumber(number).asWString()).str() + ending;
}

inline std::string linkTo(const Stage& stage, const std::string& target)
{
    std::string contents = toUTF8(stage.os(target)).str();
    contents.resize(512);
    return contents;
}

// Registers the stage as the only media location.
inline DriveId registerStage(const Stage& stage)
{
    DriveId id;
    DiskManager::addMaterialVolume(stage.os(""), id, false);
    return id;
}

inline void tellOf(Stage& stage, const char* who, const MediaError& error)
{
    if (error)
        stage.told(std::string(who) + ": " + error.text);
}

// The completions of one request.
class Answer : public iObject
{
public:
    static void completed(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
    {
        auto& self = static_cast<Answer&>(*context);
        if (status == eRequestSuccess && data && data->getBuffer() && data->getSize() != 0)
            self.bytes.assign(reinterpret_cast<const char*>(data->getBuffer()), data->getSize());
        self.succeeded = status == eRequestSuccess;
        ++self.calls;
    }
    std::string bytes;
    bool succeeded = false;
    std::atomic<unsigned> calls{0};
};
