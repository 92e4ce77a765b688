#include "fsys/SystemCache.h"

#include "Qz/Assert.h"
#include "fsys/CacheHold.h"
#include "fsys/CookieIndex.h"
#include "fsys/DiskManager.h"
#include "support/ConfigInt.h"

#include <atomic>
#include <mutex>
#include <tuple>

namespace {

unsigned int interned(const char* name) { return NotifyMsgTypeDictionary::instance().intern(name); }

std::atomic<bool> initialised{false};

}  // namespace

// The order of these is the order of their numbers.
unsigned int SystemCache::fileAddedMsgType_ = interned("SysCacheAdd");
unsigned int SystemCache::fileRemovedMsgType_ = interned("SysCacheDel");
unsigned int SystemCache::proxyAddedMsgType_ = interned("SysCacheAddProxy");
unsigned int SystemCache::proxyRemovedMsgType_ = interned("SysCacheDelProxy");

const int SystemCache::debug_ = config_int("SystemCacheDebug", 0);

CriticalSection SystemCache::lock_;
CookieIndex SystemCache::files_;
ScanCounts SystemCache::scanCounts_;

SystemCache::SystemCache() = default;
SystemCache::~SystemCache() = default;

SystemCache& SystemCache::instance() { return Qz::SingletonHolder<SystemCache>::instance(); }

void SystemCache::initialise(bool force)
{
    if (initialised && !force)
        return;
    invalidate();
    DriveId drive;
    for (bool more = DiskManager::getFirstMaterialVolume(drive); more;
         more = DiskManager::getNextMaterialVolume(drive))
        addMediaLocation(drive);
    initialised = true;
}

void SystemCache::invalidate()
{
    const std::lock_guard hold(lock_);
    files_.clear();
    scanCounts_ = ScanCounts();
}

ScanCounts SystemCache::getScanCounts()
{
    const std::lock_guard hold(lock_);
    return scanCounts_;
}

Qz::Ptr<FsysDirectoryEntry> SystemCache::findEntryForCookie(const Cookie& c)
{
    Qz::verify(c.getType() == CookieTypeVision || c.getType() == CookieTypeSound,
               "c.getType() == CookieTypeVision || c.getType() == CookieTypeSound",
               "ole/fsys/SystemCache line 242");
    const std::lock_guard hold(lock_);
    return files_.find(c);
}

Qz::Ptr<FsysDirectoryEntry> SystemCache::findOrInsert(const Cookie& cookie)
{
    Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(cookie);
    if (!entry) {
        entry = new FsysDirectoryEntry;
        files_.insert(cookie, entry.get());
    }
    return entry;
}

void SystemCache::enumerate(std::function<bool(const Cookie&, const FsysDirectoryEntry&)> visit)
{
    const CacheHold hold(lock_, "enumerate");
    // The visitor may change the index, so each step looks for its place anew.
    for (auto [cookie, found] = files_.first(); found; std::tie(cookie, found) = files_.firstBehind(cookie)) {
        const Qz::Ptr<FsysDirectoryEntry> entry(found);  // outlives its place in the index
        if (!visit(cookie, *entry))
            return;
    }
}
