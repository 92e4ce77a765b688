#include "fsys/SystemCache.h"

#include "Qz/Assert.h"
#include "fsys/DiskManager.h"
#include "support/ConfigInt.h"

#include <atomic>
#include <iterator>
#include <mutex>

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
SystemCache::Index SystemCache::files_;
ScanCounts SystemCache::scanCounts_;
unsigned SystemCache::erasures_ = 0;

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
    ++erasures_;
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
    const auto found = files_.find(c);
    return found == files_.end() ? nullptr : found->second;
}

Qz::Ptr<FsysDirectoryEntry> SystemCache::findOrInsert(const Cookie& cookie)
{
    Qz::Ptr<FsysDirectoryEntry> entry = findEntryForCookie(cookie);
    if (!entry) {
        entry = new FsysDirectoryEntry;
        files_.emplace(cookie, entry);
    }
    return entry;
}

void SystemCache::enumerate(std::function<bool(const Cookie&, const FsysDirectoryEntry&)> visit)
{
    const std::lock_guard hold(lock_);
    for (auto element = files_.begin(); element != files_.end();) {
        const auto [cookie, entry] = *element;  // both outlive the element, which the visitor may erase
        const unsigned erasures = erasures_;
        if (!visit(cookie, *entry))
            return;
        element = erasures == erasures_ ? std::next(element) : files_.upper_bound(cookie);
    }
}
