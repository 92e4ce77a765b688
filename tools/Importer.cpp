#include "Importer.h"

#include "Answer.h"
#include "FileWriter.h"
#include "Progress.h"
#include "StreamReader.h"
#include "fsys/DiskManager.h"
#include "fsys/MaterialLink.h"
#include "fsys/MediaFileInfo.h"
#include "fsys/SystemCache.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <algorithm>
#include <filesystem>

namespace {

constexpr unsigned copyBlockBytes = 1U << 20;
constexpr unsigned copyDepth = 8;

bool copyMedia(const LightweightString<wchar_t>& from, std::uint64_t size,
               const LightweightString<wchar_t>& to)
{
    StreamReader reader(from);
    FileWriter writer(to);
    if (!reader.isOpen() || !writer.isOpen()) {
        complain("cannot open %s: %s", utf8(reader.isOpen() ? to : from).c_str(),
                 errorText(lastError()).c_str());
        return false;
    }
    Progress progress("copy", size);
    std::uint64_t asked = 0;
    for (std::uint64_t copied = 0; copied < size;) {
        while (asked < size && reader.underWay() < copyDepth) {
            const auto bytes = static_cast<unsigned>(std::min<std::uint64_t>(copyBlockBytes, size - asked));
            if (!reader.ask(asked, bytes))
                return false;
            asked += bytes;
        }
        const StreamReader::Piece piece = reader.next();
        if (!piece.succeeded || !writer.write(piece.data->getBuffer(), piece.bytes)) {
            complain("copying %s stopped after %llu bytes", utf8(from).c_str(),
                     static_cast<unsigned long long>(copied));
            return false;
        }
        copied += piece.bytes;
        progress.advance(piece.bytes);
    }
    if (writer.finish())
        return true;
    complain("cannot write %s", utf8(to).c_str());
    return false;
}

bool looksLikeLink(const LightweightString<wchar_t>& path, std::uint64_t size)
{
    return size == MaterialLink::linkFileSize && MaterialLink::isLink(path);
}

}  // namespace

MaterialFilename nameInLocation(const ImportRequest& request)
{
    const std::string extension = std::filesystem::path(request.file).extension().string();
    const LightweightString<wchar_t> bare = wide(extension.size() < 2 ? "media" : extension.substr(1));
    MediaDrive& drive = DiskManager::getDriveWithUniqueId(request.location);
    const MaterialFilename plain = drive.getFsysLocation(request.cookie, bare);
    if (!request.isProxy)
        return plain;
    return {request.location,
            MediaFileInfo::makeProxyName(plain.getPath(), bare, request.proxyHeight, request.proxyChannels)};
}

std::optional<Imported> importMedia(const ImportRequest& request)
{
    iFileManager* const files = OS()->getFileManager();
    const LightweightString<wchar_t> source = wide(std::filesystem::absolute(request.file).string());
    if (!files->fileExists(source) || files->isOpenedDirectly(source)) {
        complain("%s is not a file", request.file.c_str());
        return std::nullopt;
    }
    Imported imported{request.cookie, {}, files->getFileSize(source)};
    if (imported.bytes == 0) {
        complain("%s is empty", request.file.c_str());
        return std::nullopt;
    }
    if (looksLikeLink(source, imported.bytes)) {
        complain("%s has the 512 bytes of a link file and would be taken for one", request.file.c_str());
        return std::nullopt;
    }
    const MaterialFilename name = nameInLocation(request);
    imported.file = name.getOsPath();
    if (!SystemCache::isEligible(imported.file)) {
        complain("%s is named like a companion of media, which scans pass over", request.file.c_str());
        return std::nullopt;
    }
    if (files->fileExists(imported.file)) {
        complain("%s exists already", utf8(imported.file).c_str());
        return std::nullopt;
    }
    if (request.asLink) {
        if (utf8(source).size() >= MaterialLink::linkFileSize) {
            complain("the path of %s is too long for a link file", request.file.c_str());
            return std::nullopt;
        }
        if (!MaterialLink::createLink(imported.file, source, false)) {
            complain("cannot write %s: %s", utf8(imported.file).c_str(), errorText(lastError()).c_str());
            return std::nullopt;
        }
    } else if (!copyMedia(source, imported.bytes, imported.file)) {
        return std::nullopt;
    }
    SystemCache::addFile(request.cookie, name, true);
    return imported;
}
