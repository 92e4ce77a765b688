// Filling the index from the names and sizes of a folder's files.

#include "fsys/SystemCache.h"

#include "Qz/Utf8.h"
#include "fsys/CacheHold.h"
#include "fsys/CookieIndex.h"
#include "fsys/StoredFile.h"
#include "os/Clock.h"
#include "os/LastError.h"
#include "os/OS.h"
#include "support/Log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>
#include <vector>

namespace {

constexpr std::array<std::wstring_view, 10> companionExtensions = {
    L".partial", L".lvix", L".laix", L".lvix2", L".laix2", L".vix", L".aix", L".vix2", L".aix2", L".reapeaks",
};

using Item = FolderListing::File;

// What becomes of a listed file; a name alone tells no more than media.
enum class Outcome { empty, ineligible, notCookie, media, added, augmented };

struct Judged
{
    Outcome outcome = Outcome::notCookie;
    Cookie cookie;                              // valid for media only
    std::unique_ptr<FsysDirectoryEntry> entry;  // of a file that is no proxy, ready for the index
};

bool isCompanion(std::wstring_view name)
{
    // Most names differ in their last character from all of these.
    const wchar_t last = name.empty() ? L'\0' : name.back();
    return std::any_of(
        companionExtensions.begin(), companionExtensions.end(),
        [&](std::wstring_view extension) { return extension.back() == last && name.ends_with(extension); });
}

// The name up to its first '.': what follows tells high-res from proxy.
std::wstring_view stemOf(std::wstring_view name) { return name.substr(0, name.find(L'.')); }

// The size goes first, so an empty companion counts as empty.
Outcome judge(const Item& item, Cookie& cookie)
{
    if (item.size == 0)
        return Outcome::empty;
    if (isCompanion(item.name))
        return Outcome::ineligible;
    // The parser is more generous than the rule for names, as it passes over blanks: what prints differently
    // is another name. A text of the right length has no blanks.
    const std::wstring_view stem = stemOf(item.name);
    if (stem.size() == Cookie::completeLength)
        cookie = Cookie::fromCompleteForm(stem);
    return cookie.valid() ? Outcome::media : Outcome::notCookie;
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
    explicit SystemCacheScan(const MaterialFilename& folder)
        : folder_(folder),
          folderName_(folder.getPath().view()),
          folderDecides_(!folder.getPath().endsWith(L"/") || MediaFileInfo::hasProxyWord(folder.getPath()))
    {}

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

        const CacheHold hold(SystemCache::lock_, "addDirectory");
        fileAll();
        if (SystemCache::debug_) {
            Log("Time taken (%.1fms)\n", service_get_msecs_precise() - startMs);
            traceSeparator();
        }
    }

private:
    // Runs without the cache's lock: queries do not wait for the disk, nor for the parsing of names and the
    // making of entries.
    void readFolder(const LightweightString<wchar_t>& pattern)
    {
        if (!OS()->getFileManager()->listFiles(pattern, items_))
            tellIfUnreadable(pattern);
        judged_.resize(items_.size());
        order_.reserve(items_.size());
        for (std::size_t i = 0; i < items_.size(); ++i) {
            judgeOne(items_[i], judged_[i]);
            if (judged_[i].outcome == Outcome::media)
                order_.push_back({judged_[i].cookie.getClip(), i});
        }
        // Deliberate: by clip, not by cookie, and stably. In this order the index is filled in one pass; and
        // a picture proxy with sound files itself under other cookies of its clip, so what becomes of a
        // clip must follow from the order of the listing.
        const auto byClip = [](const Filing& a, const Filing& b) { return a.clip < b.clip; };
        if (!std::is_sorted(order_.begin(), order_.end(), byClip))
            std::stable_sort(order_.begin(), order_.end(), byClip);
    }

    // A location need not have both folders; but media that is there and cannot be listed is missed.
    static void tellIfUnreadable(const LightweightString<wchar_t>& pattern)
    {
        const unsigned code = lastError();
        if (const int error = errnoFromError(code); error != ENOENT && error != ENOTDIR)
            Log("fsys: %s could not be listed: %s\n", toUTF8(pattern).c_str(), errorText(code).c_str());
    }

    void judgeOne(const Item& item, Judged& judged)
    {
        judged.outcome = judge(item, judged.cookie);
        if (judged.outcome != Outcome::media || folderDecides_ || MediaFileInfo::hasProxyWord(item.name))
            return;
        judged.entry.reset(new FsysDirectoryEntry(folder_.getDrive(), folderName_, item.name, item.size));
    }

    void fileAll()
    {
        for (const Filing& filing : order_)
            fileMedia(items_[filing.item], judged_[filing.item]);
        for (std::size_t i = 0; i < items_.size(); ++i) {
            count(judged_[i].outcome);
            if (SystemCache::debug_)
                trace(items_[i], judged_[i].outcome);
        }
        SystemCache::scanCounts_ += counts_;
    }

    void fileMedia(const Item& item, Judged& judged)
    {
        const bool isNew = judged.entry ? fileEntry(judged) : fileNamed(item, judged.cookie);
        judged.outcome = isNew ? Outcome::added : Outcome::augmented;
    }

    // True when the cookie had no entry.
    static bool fileEntry(Judged& judged)
    {
        FsysDirectoryEntry* const entry = SystemCache::files_.insert(judged.cookie, judged.entry.get());
        if (entry == judged.entry.get()) {
            (void)judged.entry.release();  // the index holds it
            return true;
        }
        entry->addListed(*judged.entry);
        judged.entry.reset();
        return false;
    }

    bool fileNamed(const Item& item, const Cookie& cookie)
    {
        const MediaFileInfo info(MaterialFilename(folder_.getDrive(), folder_.getPath() + item.name),
                                 item.size);
        if (info.isProxy())
            ++counts_.proxies;
        Qz::Ptr<FsysDirectoryEntry> entry(SystemCache::files_.find(cookie));
        const bool isNew = !entry;
        if (isNew) {
            entry = new FsysDirectoryEntry;  // in the index before it is filled, see findOrInsert
            SystemCache::files_.insert(cookie, entry.get());
        }
        entry->addFile(cookie, info);
        return isNew;
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

    struct Filing
    {
        std::uint64_t clip;
        std::size_t item;
    };

    MaterialFilename folder_;
    FolderName folderName_;  // the same path
    bool folderDecides_;     // whether a file may be a proxy for what its folder is called
    FolderListing items_;
    std::vector<Judged> judged_;  // one for each item
    std::vector<Filing> order_;   // of the media
    ScanCounts counts_;
};

bool SystemCache::isEligible(const LightweightString<wchar_t>& fileName)
{
    return !isCompanion(fileName.view());
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
