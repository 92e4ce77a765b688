#include "Control.h"

#include "Pattern.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"
#include "media/MediaWriter.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace {

// Ids are not used again before the registry starts afresh, and there are 255 of them.
constexpr unsigned registeredMax = 150;

using Callback = FunctionCallback<int, NotifyMsg>;
using CallbackPtr = Qz::Ptr<iCallbackBase<int, NotifyMsg>>;

std::string guestFolder(const Studio& studio) { return studio.places.back() + "/guest"; }

Qz::Ptr<MediaDrive> addLocation(const LightweightString<wchar_t>& root)
{
    DiskManager::addMediaLocation(root);
    Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(root);
    if (drive && !drive->prepareForMedia())
        drive.reset();
    return drive;
}

}  // namespace

Control::Control(Studio& studio) : studio_(studio), random_(studio.seed) {}

void Control::begin()
{
    DiskManager::init(fromUTF8(studio_.space), true);
    for (const std::string& place : studio_.places) {
        fs::create_directories(place + "/location");
        if (!addLocation(locationAt(place)))
            studio_.report.wrong("no location at " + place);
    }
    counting_ =
        SystemCache::instance().addListener(CallbackPtr(new Callback([this](const NotifyMsg& message) {
                                                hear(message.getText().str());
                                                return 0;
                                            })),
                                            static_cast<int>(SystemCache::fileAddedMsgType_));
    fs::create_directories(guestFolder(studio_));
    const LightweightString<wchar_t> root = fromUTF8(guestFolder(studio_) + "/");
    const Qz::Ptr<MediaDrive> drive = addLocation(root);
    Clip clip;
    clip.cookie = Cookie::makeNew();
    clip.number = studio_.nextNumber++;
    clip.bytes = 100'000;
    if (!drive) {
        studio_.report.wrong("no guest location");
        return;
    }
    MediaWriter writer(clip.cookie, drive->getFsysLocation(clip.cookie, L"raw"));
    std::vector<std::byte> bytes(static_cast<std::size_t>(clip.bytes));
    fillPattern(clip.number, 0, bytes);
    writer.write(bytes);
    clip.path = writer.finish().path;
    guestClip_ = std::make_shared<const Clip>(clip);
    guestIsThere_ = true;
    ++studio_.report.recordings;
}

void Control::hear(const std::string& cookie)
{
    ++studio_.report.messages;
    const std::lock_guard<std::mutex> hold(guard_);
    ++heard_[cookie];
}

void Control::step()
{
    switch (random_() % 12) {
    case 0:
        scanAll();
        break;
    case 1:
    case 2:
    case 3:
        scanOne();
        break;
    case 4:
    case 5:
    case 6:
        renameOne();
        break;
    case 7:
    case 8:
        if (registered_ < registeredMax)
            guestComesOrGoes();
        break;
    case 9:
        listenersChange();
        break;
    case 10:
        DiskManager::updateDrives();
        break;
    default:
        SystemCache::enumerate([](const Cookie&, const FsysDirectoryEntry& entry) {
            return entry.updateStatus(eHighRes) != eStatusUnknown;
        });
    }
}

void Control::refill()
{
    ++studio_.refillsBegun;
    SystemCache::initialise(true);
    ++studio_.refillsEnded;
}

void Control::scanAll()
{
    const ClipPtr clip = studio_.catalog.pick(random_);
    refill();
    ++studio_.report.scans;
    if (clip)
        expectKnown(clip);
}

void Control::scanOne()
{
    const ClipPtr clip = studio_.catalog.pick(random_);
    const auto root = locationAt(studio_.places[random_() % studio_.places.size()]);
    if (const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(root))
        SystemCache::addMediaLocation(drive->getId());
    ++studio_.report.scans;
    if (clip)
        expectKnown(clip);
}

void Control::expectKnown(const ClipPtr& clip)
{
    if (SystemCache::fileSize(clip->cookie) != clip->bytes)
        studio_.report.wrong("after a scan " + clip->cookie.asString(true).str() + " has " +
                             std::to_string(SystemCache::fileSize(clip->cookie)) + " bytes and not " +
                             std::to_string(clip->bytes));
}

void Control::renameOne()
{
    const auto root = locationAt(studio_.places[random_() % studio_.places.size()]);
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(root);
    const auto name = fromUTF8("Raid " + std::to_string(random_() % 1000));
    if (!drive || !DiskManager::renameMediaLocation(drive->getId(), name))
        studio_.report.wrong("a location was not renamed");
    else if (DiskManager::getMediaLocationUserName(drive->getId()) != name)
        studio_.report.wrong("a location's new name was not kept");
    ++studio_.report.locationChanges;
}

void Control::guestComesOrGoes()
{
    const auto root = fromUTF8(guestFolder(studio_) + "/");
    const bool done =
        guestIsThere_ ? DiskManager::removeMediaLocation(root) : DiskManager::addMediaLocation(root);
    if (!done)
        studio_.report.wrong("the guest location did not come or go");
    guestIsThere_ = !guestIsThere_;
    ++registered_;
    ++studio_.report.locationChanges;
    if (guestIsThere_ != (SystemCache::fileSize(guestClip_->cookie) == guestClip_->bytes))
        studio_.report.wrong("the guest's clip is known or not, wrongly");
}

void Control::listenersChange()
{
    others_.clear();
    for (std::uint64_t count = random_() % 5; count != 0; --count) {
        others_.push_back(DiskManager::addListener(CallbackPtr(new Callback([this](const NotifyMsg&) {
            ++studio_.report.messages;
            return 0;
        }))));
    }
}

void Control::checkAtRest()
{
    if (registered_ >= registeredMax) {
        // The list of locations holds the guest or not, and stays.
        DiskManager::init(fromUTF8(studio_.space), true);
        registered_ = 0;
    }
    refill();
    const std::vector<ClipPtr> clips = studio_.catalog.all();
    for (const ClipPtr& clip : clips)
        expectKnown(clip);
    const std::lock_guard<std::mutex> hold(guard_);
    if (heard_.size() != studio_.report.recordings)
        studio_.report.wrong("listeners heard of " + std::to_string(heard_.size()) + " clips of " +
                             std::to_string(studio_.report.recordings));
    for (const auto& [cookie, times] : heard_)
        if (times != 1)
            studio_.report.wrong("listeners heard of " + cookie + " " + std::to_string(times) + " times");
}
