// Copies the full-resolution file of a clip to another media location, reads the copy back and compares.
//   copy_clip PROJECT_SPACE COOKIE LOCATION_FOLDER

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

constexpr std::size_t pieceBytes = std::size_t{1} << 20;
constexpr std::uint64_t readAheadBytes = std::uint64_t{8} << 20;

bool complain(const std::string& text)
{
    std::fprintf(stderr, "%s\n", text.c_str());
    return false;
}

// True at the end of the file, false after any other error.
bool isEnd(const MediaError& error)
{
    return error.code == MediaErrorCode::beyondEnd || complain(error.text);
}

bool copyBytes(MediaReader& from, MediaWriter& to)
{
    std::vector<std::byte> piece(pieceBytes);
    MediaError error;
    for (std::uint64_t at = 0;;) {
        const std::size_t bytes = from.read(at, piece, &error);
        if (error)
            return isEnd(error);
        if (!to.write(std::span(piece).first(bytes)))
            return complain(to.error().text);
        at += bytes;
    }
}

// The reader of the original has shown what it holds; one that is opened now asks the disk.
bool compareBytes(MediaReader& original, const LightweightString<wchar_t>& path)
{
    MediaReader copy(path);
    copy.setReadAhead(readAheadBytes);
    if (copy.size() != original.size())
        return complain(toUTF8(path).str() + " has another size than its original");
    std::vector<std::byte> expected(pieceBytes);
    std::vector<std::byte> found(pieceBytes);
    MediaError error;
    for (std::uint64_t at = 0;;) {
        const std::size_t bytes = original.read(at, expected, &error);
        if (error)
            return isEnd(error);
        const std::size_t same = copy.read(at, found, &error);
        if (error)
            return complain(error.text);
        if (same != bytes ||
            !std::equal(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(bytes), expected.begin()))
            return complain(toUTF8(path).str() + " reads back differently");
        at += bytes;
    }
}

bool copyClip(const Cookie& clip, const Qz::Ptr<MediaDrive>& drive)
{
    // A link is followed: the copy holds the media itself. It keeps the name, by which scans know the clip.
    const MaterialFilename name(drive->getId(), SystemCache::find(clip).getPath());
    MediaReader original(clip, DecodeFormat(eHighRes));
    if (!original.isOpen())
        return complain(original.openError().text);
    original.setReadAhead(readAheadBytes);
    MediaWriter writer(clip, name);
    if (!writer.isOpen())
        return complain(writer.error().text);
    if (!copyBytes(original, writer)) {
        writer.abandon();  // half a copy is of no use
        return false;
    }
    const MediaRecording copy = writer.finish();
    if (!copy.complete)
        return complain(copy.error.text);
    if (!compareBytes(original, copy.path))
        return false;
    std::printf("%s\n", toUTF8(copy.path).c_str());
    return true;
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 4) {
        std::fprintf(stderr, "usage: copy_clip PROJECT_SPACE COOKIE LOCATION_FOLDER\n");
        return 2;
    }
    FsysInitialize();
    DiskManager::init(fromUTF8(arguments[1]), true);
    const Cookie clip(LightweightString<char>(arguments[2]), true);
    const LightweightString<wchar_t> folder = fromUTF8(arguments[3]);
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(folder.endsWith(L"/") ? folder : folder + L"/");
    bool copied = false;
    if (!clip.valid() || !SystemCache::fileExists(clip))
        complain(std::string("no media of ") + arguments[2] + " is known");
    else if (!drive || !drive->prepareForMedia())
        complain(std::string(arguments[3]) + " is no media location that can be written");
    else
        copied = copyClip(clip, drive);
    Shutdown::run(Shutdown::eNormalExit);
    return copied ? 0 : 1;
}
