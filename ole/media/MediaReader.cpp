#include "media/MediaReader.h"

#include "fsys/FsysEntry.h"
#include "fsys/MaterialLink.h"
#include "fsys/MediaFileInfo.h"
#include "fsys/SystemCache.h"
#include "media/ReaderSession.h"

#include <list>
#include <utility>

namespace {

using Path = LightweightString<wchar_t>;

// The link of the clip that leads to target; empty when none does.
Path linkOfClipTo(const Cookie& cookie, const Path& target)
{
    const auto leadsThere = [&target](const Path& link) {
        Path end;
        return MaterialLink::getLinkedFilename(link, end) && end == target;
    };
    if (Path highRes = SystemCache::find(cookie).getOsPath(); leadsThere(highRes))
        return highRes;
    std::list<MediaFileInfo> proxies;
    SystemCache::getProxyFiles(cookie, proxies);
    for (const MediaFileInfo& proxy : proxies)
        if (Path link = proxy.getMaterialFilename().getOsPath(); leadsThere(link))
            return link;
    return {};
}

// As the cache itself judges.
bool holdsFile(const FsysDirectoryEntry& entry)
{
    const auto isPresent = [](const MediaFileInfo& file) {
        return file.getMaterialFilename().getDrive().valid() && !file.getMaterialFilename().getPath().empty();
    };
    if (isPresent(entry.getHighResFile()))
        return true;
    const std::list<MediaFileInfo> proxies = entry.copyProxyFiles();
    return !proxies.empty() && isPresent(proxies.front());
}

// The path to open for a clip.
MediaError findClip(const Cookie& cookie, const DecodeFormat& format, Path& path)
{
    const auto failure = [&cookie](MediaErrorCode code) { return readError(code, 0, cookie.asWString()); };
    if (unsigned bytes = 0; FsysGetWriteBytesOutstanding(&bytes) == 0)
        return failure(MediaErrorCode::engineNotRunning);
    // From here on of one entry: the index may be emptied and filled anew at any moment, and a clip that it
    // does not know then is not offline.
    const Qz::Ptr<FsysDirectoryEntry> entry =
        cookie.valid() ? SystemCache::findEntryForCookie(cookie) : Qz::Ptr<FsysDirectoryEntry>();
    if (!entry || !holdsFile(*entry))
        return failure(MediaErrorCode::unknownClip);
    path = entry->findFileForCookie(format);
    if (path.empty())
        return failure(MediaErrorCode::offline);
    // The cache has followed the link already. A target that looks like a link itself would be followed once
    // more, unless the clip's own link is opened.
    if (MaterialLink::isLink(path))
        if (Path link = linkOfClipTo(cookie, path); !link.empty())
            path = std::move(link);
    return {};
}

}  // namespace

MediaData::MediaData(const Qz::Ptr<iMemHolder>& memory, std::size_t offset, std::size_t size)
    : memory_(memory), bytes_(std::as_bytes(std::span(memory->getBuffer() + offset, size)))
{}

MediaReader::MediaReader(const LightweightString<wchar_t>& path)
    : session_(std::make_shared<Session>(path, false)), path_(path)
{
    openError_ = session_->open();
    target_ = session_->target();
}

MediaReader::MediaReader(const Cookie& cookie, const DecodeFormat& format)
{
    openError_ = findClip(cookie, format, path_);
    session_ = std::make_shared<Session>(path_, true);
    if (openError_)
        session_->refuse(openError_);
    else
        openError_ = session_->open();
    target_ = session_->target();
}

MediaReader::~MediaReader() { session_->close(); }

bool MediaReader::isOpen() const { return !openError_; }
const MediaError& MediaReader::openError() const { return openError_; }
const LightweightString<wchar_t>& MediaReader::path() const { return path_; }
const LightweightString<wchar_t>& MediaReader::target() const { return target_; }
std::uint64_t MediaReader::size() const { return session_->size(); }

std::size_t MediaReader::read(std::uint64_t offset, std::span<std::byte> into, MediaError* error)
{
    MediaError failure;
    const std::size_t got = session_->read(offset, into, failure);
    if (error)
        *error = std::move(failure);
    return got;
}

MediaReader::Ticket MediaReader::readAsync(std::uint64_t offset, std::uint64_t bytes, Callback callback)
{
    return session_->readAsync(offset, bytes, std::move(callback));
}

std::future<MediaReadResult> MediaReader::readAsync(std::uint64_t offset, std::uint64_t bytes)
{
    return session_->readAsync(offset, bytes);
}

bool MediaReader::cancel(Ticket ticket) { return session_->cancel(ticket); }
std::size_t MediaReader::cancelAll() { return session_->cancelAll(); }
void MediaReader::setReadAhead(std::uint64_t bytes) { session_->setReadAhead(bytes); }
void MediaReader::setStallLimit(unsigned limitMs) { session_->setStallLimit(limitMs); }
MediaReader::Counters MediaReader::counters() const { return session_->counters(); }
