#include "Clips.h"

#include "Engine.h"
#include "Gil.h"
#include "Raised.h"
#include "Texts.h"
#include "fsys/MaterialLink.h"
#include "fsys/MediaStatus.h"
#include "fsys/SystemCache.h"
#include "os/OS.h"

#include <algorithm>
#include <list>
#include <optional>
#include <string>
#include <vector>

namespace py = pybind11;

namespace {

using Path = LightweightString<wchar_t>;

bool isPresent(const MediaFileInfo& file)
{
    return file.getMaterialFilename().getDrive().valid() && !file.getMaterialFilename().getPath().empty();
}

bool contradicts(const MediaFileInfo& file, bool there)
{
    return file.status != eStatusUnknown && (file.status == eStatusOnline) != there;
}

// A record of the same file that nobody has tested. A link's target is kept: the disk may be away.
MediaFileInfo untested(const MediaFileInfo& file)
{
    if (file.isLinkFile())
        return {file.getMaterialFilename(), file.readLinkedFilename(), file.size};
    return {file.getMaterialFilename(), file.size};
}

bool isThere(const MediaFileInfo& file)
{
    return OS()->getFileManager()->fileExists(file.getPhysicalFilename(false));
}

}  // namespace

void clips::testAgain(const Cookie& cookie)
{
    const Qz::Ptr<FsysDirectoryEntry> entry = SystemCache::findEntryForCookie(cookie);
    if (!entry)
        return;
    const MediaFileInfo high = entry->getHighResFile();
    const bool there = isPresent(high) && isThere(high);
    // The index takes plain media that is filed for present, so only a link can be made offline.
    if (isPresent(high) && contradicts(high, there) && (there || high.isLinkFile())) {
        entry->removeFile(high);
        entry->addFile(cookie, untested(high));
    }
    for (const MediaFileInfo& proxy : entry->copyProxyFiles())
        if (contradicts(proxy, isThere(proxy))) {
            entry->removeProxyFile(proxy.getPhysicalFilename(false));
            entry->addProxyFile(untested(proxy));
        }
}

namespace {

struct TestedFile
{
    Path path;
    Path target;  // what a link points at; empty for media itself
    std::uint64_t bytes = 0;
    bool online = false;
    DriveId location;
    bool isProxy = false;
    unsigned height = 0;
    unsigned channels = 0;

    [[nodiscard]] const Path& opened() const { return target.empty() ? path : target; }
};

TestedFile tested(const MediaFileInfo& record)
{
    TestedFile file;
    file.path = record.getLinkFileName();
    const Path physical = record.getPhysicalFilename(false);
    if (record.isLinkFile() && physical != file.path)
        file.target = physical;
    file.online = OS()->getFileManager()->fileExists(physical);
    file.bytes = file.online ? OS()->getFileManager()->getFileSize(physical) : 0;
    file.location = record.getMaterialFilename().getDrive();
    file.isProxy = record.isProxy();
    file.height = record.getProxyHeight();
    file.channels = record.getProxyAudioChannels();
    return file;
}

struct Channel
{
    Cookie cookie;
    std::optional<TestedFile> high;
    std::vector<TestedFile> proxies;
};

Channel testedChannel(const Cookie& cookie)
{
    Channel channel{cookie, {}, {}};
    const Qz::Ptr<FsysDirectoryEntry> entry = SystemCache::findEntryForCookie(cookie);
    if (!entry)
        return channel;
    const MediaFileInfo high = entry->getHighResFile();
    if (isPresent(high))
        channel.high = tested(high);
    for (const MediaFileInfo& proxy : entry->copyProxyFiles())
        // A full-resolution file may be listed as a proxy of itself.
        if (!isPresent(high) || proxy.getLinkFileName() != high.getLinkFileName())
            channel.proxies.push_back(tested(proxy));
    return channel;
}

// In the order of cookies; vision before sound, since people look for the picture first.
std::vector<Cookie> cookiesOf(const std::optional<Cookie>& clip)
{
    std::vector<Cookie> cookies;
    SystemCache::enumerate([&](const Cookie& cookie, const FsysDirectoryEntry&) {
        if (!clip || cookie.getClip() == clip->getClip())
            cookies.push_back(cookie);
        return true;
    });
    std::stable_sort(cookies.begin(), cookies.end(), [](const Cookie& a, const Cookie& b) {
        if (a.getClip() != b.getClip())
            return a.getClip() < b.getClip();
        return a.getType() == CookieTypeVision && b.getType() != CookieTypeVision;
    });
    return cookies;
}

py::object textOrNone(const Path& text)
{
    return text.empty() ? py::object(py::none()) : texts::toPython(text);
}

py::dict describe(const TestedFile& file)
{
    py::dict told;
    told["path"] = texts::toPython(file.path);
    told["target"] = textOrNone(file.target);
    told["bytes"] = file.bytes;
    told["online"] = file.online;
    told["location"] = texts::toPython(file.location);
    const bool hasHeight = file.isProxy && file.height != MediaFileInfo::noProxyHeight;
    told["height"] = hasHeight ? py::object(py::int_(file.height)) : py::none();
    told["audio_channels"] = file.channels;
    return told;
}

py::dict describe(const Channel& channel)
{
    py::dict told;
    told["cookie"] = texts::fromUtf8(channel.cookie.asString(true).view());
    told["kind"] = channel.cookie.getType() == CookieTypeVision ? "vision" : "sound";
    told["number"] = static_cast<unsigned>(channel.cookie.getChannel());
    told["high"] = channel.high ? py::object(describe(*channel.high)) : py::none();
    py::list proxies;
    for (const TestedFile& proxy : channel.proxies)
        proxies.append(describe(proxy));
    told["proxies"] = proxies;
    return told;
}

// All channels of the clip, tested; of every clip without one.
py::list channels(const py::object& cookie)
{
    std::optional<Cookie> clip;
    if (!cookie.is_none())
        clip = clips::cookieOf(cookie);
    const std::vector<Channel> all = gil::without([&] {
        const engine::Use use;
        std::vector<Channel> found;
        for (const Cookie& channel : cookiesOf(clip))
            found.push_back(testedChannel(channel));
        return found;
    });
    py::list told;
    for (const Channel& channel : all)
        if (channel.high || !channel.proxies.empty())
            told.append(describe(channel));
    return told;
}

bool isProxyOf(const Channel& channel, const Path& file)
{
    return std::any_of(channel.proxies.begin(), channel.proxies.end(),
                       [&](const TestedFile& proxy) { return proxy.opened() == file; });
}

py::dict findFile(const py::str& cookie, const py::str& level, unsigned height)
{
    const Cookie clip = clips::cookieOf(cookie);
    const DecodeFormat format = clips::formatOf(level, height);
    const clips::Found found = gil::without([&] { return clips::find(clip, format); });
    py::dict told;
    told["cookie"] = texts::fromUtf8(clip.asString(true).view());
    told["path"] = textOrNone(found.path);
    told["kind"] = found.path.empty() ? py::object(py::none()) : py::str(found.isProxy ? "proxy" : "high");
    told["status"] = !found.known ? "unknown" : found.online ? "online" : "offline";
    return told;
}

// Of all locations: dropping one of them would take proxies along that lie elsewhere.
py::dict scan()
{
    const ScanCounts counts = gil::without([&] {
        const engine::Use use;
        const std::unique_lock alone = engine::changing();
        SystemCache::initialise(true);
        return SystemCache::getScanCounts();
    });
    py::dict told;
    told["files"] = counts.files;
    told["clips"] = counts.clips;
    told["augmented"] = counts.augmented;
    told["proxies"] = counts.proxies;
    told["skipped_empty"] = counts.skippedEmpty;
    told["skipped_ineligible"] = counts.skippedIneligible;
    told["skipped_not_cookie"] = counts.skippedNotCookie;
    return told;
}

py::str completeCookie(const py::str& text)
{
    return texts::fromUtf8(clips::cookieOf(text).asString(true).view());
}

py::str newCookie(bool sound)
{
    return texts::fromUtf8(Cookie::makeNew(sound ? CookieTypeSound : CookieTypeVision).asString(true).view());
}

}  // namespace

namespace clips {

Cookie cookieOf(const py::str& text)
{
    const Cookie cookie(texts::toWide(text), false);
    if (!cookie.valid())
        throw Raised(
            MediaError{MediaErrorCode::invalidArgument, 0, text.cast<std::string>() + " is no cookie"});
    return cookie;
}

DecodeFormat formatOf(const py::str& level, unsigned height)
{
    const auto name = level.cast<std::string>();
    if (name != "high" && name != "proxy" && name != "auto")
        throw Raised(
            MediaError{MediaErrorCode::invalidArgument, 0, "level is high, proxy or auto, not " + name});
    DecodeFormat format(name == "proxy" ? eProxy : name == "auto" ? eAuto : eHighRes);
    if (height != 0)
        format.setHeight(height);
    return format;
}

Found find(const Cookie& cookie, const DecodeFormat& format)
{
    const engine::Use use;
    Found found;
    testAgain(cookie);
    found.known = SystemCache::fileExists(cookie);
    if (!found.known)
        return found;
    SystemCache::findFileForCookie(cookie, found.path, format);
    const Channel channel = testedChannel(cookie);
    found.online = !found.path.empty() && OS()->getFileManager()->fileExists(found.path);
    if (!found.online)
        for (const TestedFile& proxy : channel.proxies)
            if (proxy.online) {
                found.path = proxy.path;
                found.isProxy = found.online = found.insteadOf = true;
                return found;
            }
    found.isProxy = !found.path.empty() && isProxyOf(channel, found.path);
    return found;
}

void addTo(py::module_& module)
{
    module.def("channels", &channels, py::arg("cookie"));
    module.def("find", &findFile, py::arg("cookie"), py::arg("level"), py::arg("height"));
    module.def("scan", &scan);
    module.def("complete_cookie", &completeCookie, py::arg("text"));
    module.def("new_cookie", &newCookie, py::arg("sound"));
}

}  // namespace clips
