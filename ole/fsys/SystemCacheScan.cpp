// Filling the index from the names and sizes of a folder's files.

#include "fsys/SystemCache.h"

#include "Qz/StringHelpers.h"
#include "Qz/Utf8.h"
#include "os/Clock.h"
#include "os/OS.h"
#include "support/Log.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <string_view>
#include <vector>

namespace {

constexpr std::array<std::wstring_view, 10> companionExtensions = {
    L".partial", L".lvix", L".laix", L".lvix2", L".laix2", L".vix", L".aix", L".vix2", L".aix2", L".reapeaks",
};

using Item = iFileManager::DirectoryItem;

// What becomes of a listed file; a name alone tells no more than media.
enum class Outcome { empty, ineligible, notCookie, media, added, augmented };

struct Judged
{
    Outcome outcome;
    Cookie cookie;  // valid for media only
};

// The name up to its first '.': what follows tells high-res from proxy.
LightweightString<wchar_t> stemOf(const LightweightString<wchar_t>& name)
{
    const std::size_t dot = name.find(L'.');
    return dot == LightweightString<wchar_t>::npos ? name : name.substr(0, dot);
}

// The size goes first, so an empty companion counts as empty.
Judged judge(const Item& item)
{
    if (item.size == 0)
        return {Outcome::empty, Cookie()};
    if (!SystemCache::isEligible(item.name))
        return {Outcome::ineligible, Cookie()};
    const LightweightString<wchar_t> stem = stemOf(item.name);
    const Cookie cookie(stem, true);
    // The parser is more generous than the rule for names: what prints differently is another name.
    if (!cookie.valid() || !Qz::equalsIgnoringCase(cookie.asWString(), stem))
        return {Outcome::notCookie, Cookie()};
    return {Outcome::media, cookie};
}

void trace(const Item& item, Outcome outcome)
{
    const LightweightString<char> name = toUTF8(item.name);
    switch (outcome) {
    case Outcome::empty:
        return Log("skipped empty file (%s)\n", name.c_str());
    case Outcome::ineligible:
        return Log("skipped ineligible file (%s)\n", name.c_str());
    case Outcome::notCookie:
        return Log("skipped non-cookie file (%s)\n", name.c_str());
    case Outcome::added:
        return Log("added cache entry     (%s)\n", name.c_str());
    case Outcome::augmented:
        return Log("augmented cache entry (%s)\n", name.c_str());
    case Outcome::media:
        return;
    }
}

void traceSeparator() { Log("-------------------------------------------------------\n"); }

}  // namespace

// SystemCacheScan: one scan of one folder.
class SystemCacheScan
{
public:
    explicit SystemCacheScan(const MaterialFilename& folder) : folder_(folder) {}

    void run()
    {
        const LightweightString<wchar_t> pattern = folder_.getOsPath() + L"*.*";
        const double startMs = SystemCache::debug_ ? service_get_msecs_precise() : 0;
        if (SystemCache::debug_) {
            traceSeparator();
            Log("SystemCache::addDirectory( %s )\n", toUTF8(pattern).c_str());
        }
        readFolder(pattern);
        if (SystemCache::debug_)
            Log("Num files %d\n", static_cast<int>(items_.size()));

        const std::lock_guard hold(SystemCache::lock_);
        fileAll();
        if (SystemCache::debug_) {
            Log("Time taken (%.1fms)\n", service_get_msecs_precise() - startMs);
            traceSeparator();
        }
    }

private:
    // Runs without the cache's lock: queries do not wait for the disk, nor for the parsing of names.
    void readFolder(const LightweightString<wchar_t>& pattern)
    {
        OS()->getFileManager()->listDirectory(pattern, items_);
        judged_.reserve(items_.size());
        for (const Item& item : items_)
            judged_.push_back(judge(item));
    }

    void fileAll()
    {
        place_ = SystemCache::files_.begin();
        for (std::size_t i = 0; i < items_.size(); ++i) {
            const Outcome judged = judged_[i].outcome;
            const Outcome outcome =
                judged == Outcome::media ? fileMedia(items_[i], judged_[i].cookie) : judged;
            count(outcome);
            if (SystemCache::debug_)
                trace(items_[i], outcome);
        }
        SystemCache::scanCounts_ += counts_;
    }

    Outcome fileMedia(const Item& item, const Cookie& cookie)
    {
        const MediaFileInfo info(MaterialFilename(folder_.getDrive(), folder_.getPath() + item.name),
                                 item.size);
        if (info.isProxy())
            ++counts_.proxies;
        place_ = SystemCache::files_.try_emplace(findPlace(cookie), cookie);
        Qz::Ptr<FsysDirectoryEntry>& entry = place_->second;
        const bool isNew = !entry;
        if (isNew)
            entry = new FsysDirectoryEntry;  // in the index before it is filled, see findOrInsert
        entry->addFile(cookie, info);
        return isNew ? Outcome::added : Outcome::augmented;
    }

    // Where cookie belongs, as a hint. Listings are sorted by name, which is nearly the order of cookies,
    // so the place is mostly a few elements behind the last one and a batch is filed in one pass.
    SystemCache::Index::iterator findPlace(const Cookie& cookie) const
    {
        constexpr int stepsMax = 8;
        auto hint = place_;
        for (int step = 0; step < stepsMax && hint != SystemCache::files_.end() && hint->first < cookie;
             ++step)
            ++hint;
        return hint;
    }

    void count(Outcome outcome)
    {
        ++counts_.files;
        counts_.skippedEmpty += outcome == Outcome::empty;
        counts_.skippedIneligible += outcome == Outcome::ineligible;
        counts_.skippedNotCookie += outcome == Outcome::notCookie;
        counts_.clips += outcome == Outcome::added;
        counts_.augmented += outcome == Outcome::augmented;
    }

    MaterialFilename folder_;
    std::vector<Item> items_;
    std::vector<Judged> judged_;          // one for each item
    SystemCache::Index::iterator place_;  // of the file before
    ScanCounts counts_;
};

bool SystemCache::isEligible(const LightweightString<wchar_t>& fileName)
{
    return std::none_of(companionExtensions.begin(), companionExtensions.end(),
                        [&](std::wstring_view extension) { return fileName.endsWith(extension); });
}

void SystemCache::addDirectory(const MaterialFilename& folder) { SystemCacheScan(folder).run(); }

void SystemCache::addMediaLocation(DriveId drive)
{
    if (!drive.valid())
        return;
    const LightweightString<wchar_t> separator =
        LightweightString<wchar_t>() + OS()->getFileManager()->getPathSeparator();
    const MaterialFilename material(drive, separator + L"Material" + separator);
    const MaterialFilename sound(drive, separator + L"Sound" + separator);
    addDirectory(material);
    addDirectory(sound);
    LogBoth("Added media location : %ls\n", material.getOsPath().c_str());
    LogBoth("Added media location : %ls\n", sound.getOsPath().c_str());
}
