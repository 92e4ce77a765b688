#include "fsys/MaterialLink.h"

#include <array>
#include <cstdlib>
#include <cstring>

#include "Qz/Assert.h"
#include "Qz/Ptr.h"
#include "Qz/Utf8.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/OS.h"

namespace {

using Path = LightweightString<wchar_t>;

// Every read asks for one byte less than its buffer, whose last byte stays zero: contents are a text.
template <std::size_t size>
using Buffer = std::array<char, size>;

iFileManager& files() { return *OS()->getFileManager(); }

template <std::size_t size>
bool startsWithRiff(const Buffer<size>& contents)
{
    return std::memcmp(contents.data(), "RIFF", 4) == 0;
}

template <std::size_t size>
bool readStart(const Path& path, Buffer<size>& contents)
{
    const Qz::Ptr<iFile> file =
        files().open(path, os::accessRead, os::creationOpen, os::shareAll, os::modePlain);
    if (file && file->isOpen() && file->read(0, contents.data(), size - 1, nullptr))
        return true;
    files().reportError(path, lastError());
    return false;
}

Buffer<MaterialLink::linkFileSize> makeLinkContents(const Path& target)
{
    Buffer<MaterialLink::linkFileSize> contents{};
    const LightweightString<char> text = toUTF8(target);
    if (text.size() >= contents.size())
        std::abort();
    std::memcpy(contents.data(), text.c_str(), text.size());
    return contents;
}

}  // namespace

bool MaterialLink::getLinkedFilename(const LightweightString<wchar_t>& osPath,
                                     LightweightString<wchar_t>& target)
{
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): target may be the same object
    const Path path = osPath;
    target = Path();
    if (files().getFileSize(path) != linkFileSize) {
        target = path;
        return false;
    }
    Buffer<linkFileSize> contents{};
    if (!readStart(path, contents))
        return false;
    if (startsWithRiff(contents)) {
        target = path;
        return false;
    }
    target = fromUTF8(contents.data());
    return true;
}

LightweightString<wchar_t> MaterialLink::resolveLink(const MaterialFilename& file)
{
    Path target;
    getLinkedFilename(file.getOsPath(), target);
    return target;
}

bool MaterialLink::linkedFileExists(const MaterialFilename& file)
{
    Path target;
    return getLinkedFilename(file.getOsPath(), target) && files().fileExists(target);
}

bool MaterialLink::isLink(const LightweightString<wchar_t>& osPath)
{
    if (files().getFileSize(osPath) != linkFileSize)
        return false;
    Buffer<4096> contents{};
    return readStart(osPath, contents) && !startsWithRiff(contents);
}

std::optional<bool> MaterialLink::tellLink(iFile& file)
{
    FILE_INFO info;
    if (!file.getInfo(&info))
        return {};
    if (info.size != linkFileSize)
        return false;
    Buffer<linkFileSize> contents{};
    if (!file.read(0, contents.data(), contents.size(), nullptr))
        return {};
    return !startsWithRiff(contents);
}

bool MaterialLink::createLink(const LightweightString<wchar_t>& osPath,
                              const LightweightString<wchar_t>& target, bool overwrite)
{
    const Buffer<linkFileSize> contents = makeLinkContents(target);
    const bool existed = overwrite && files().fileExists(osPath);
    Qz::Ptr<iFile> file =
        files().open(osPath, os::accessWrite, overwrite ? os::creationOpenOrNew : os::creationNew,
                     os::shareAll, os::modePlain);
    if (!file || !file->isOpen())
        return false;
    FILE_INFO info;
    if (overwrite && !file->getInfo(&info))
        return false;  // what cannot be measured may be media
    if (overwrite && info.size > linkFileSize) {
        Qz::assertionFailed("false", "ole/fsys/MaterialLink line 129");
        return false;
    }
    // Without overwrite the open made the file. With it another process may have, since it was asked for;
    // then it is not ours to remove.
    const bool madeHere = !overwrite || (!existed && info.size == 0);
    const bool written = file->write(0, contents.data(), contents.size(), nullptr);
    file.reset();
    // A cut link has another size than a link, so the next scan would take it for media.
    if (!written && madeHere)
        files().deleteFile(osPath);
    return written;
}
