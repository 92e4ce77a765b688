#include "Importer.h"

#include "Answer.h"
#include "MediaCopy.h"
#include "fsys/DiskManager.h"
#include "fsys/MaterialLink.h"
#include "fsys/MediaFileInfo.h"
#include "fsys/SystemCache.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <filesystem>

namespace {

bool copyIn(const LightweightString<wchar_t>& from, const MaterialFilename& name, Imported& imported)
{
    MediaReader reader(from);
    MediaWriterOptions options;
    options.hash = true;
    MediaWriter writer(imported.cookie, name, options);
    if (!reader.isOpen() || !writer.isOpen()) {
        complain("%s", (reader.isOpen() ? writer.error() : reader.openError()).text.c_str());
        writer.abandon();
        return false;
    }
    Progress progress("copy", imported.bytes, Progress::Unit::bytes);
    const MediaRecording copy = copyMedia(reader, writer, progress);
    imported.hash = copy.hash;
    imported.bytes = copy.bytes;
    if (!copy.complete)
        complain("copying %s: %s", utf8(from).c_str(), copy.error.text.c_str());
    return copy.complete;
}

bool makeLink(const LightweightString<wchar_t>& from, const ImportRequest& request,
              const MaterialFilename& name)
{
    if (utf8(from).size() >= MaterialLink::linkFileSize) {
        complain("the path of %s is too long for a link file", request.file.c_str());
        return false;
    }
    if (!MaterialLink::createLink(name.getOsPath(), from, false)) {
        complain("cannot write %s: %s", utf8(name.getOsPath()).c_str(), errorText(lastError()).c_str());
        return false;
    }
    SystemCache::addFile(request.cookie, name, true);
    return true;
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
    Imported imported{request.cookie, {}, files->getFileSize(source), {}};
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
    if (!(request.asLink ? makeLink(source, request, name) : copyIn(source, name, imported)))
        return std::nullopt;
    return imported;
}
