// The media cache with a million clips, filled by a scan of a folder that is on no disk, or file by file.

#include "Clips.h"
#include "Peers.h"
#include "fsys/SystemCache.h"
#include "os/OS.h"
#include "os/testing/ForwardingOS.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>

namespace {

// Lists the names that it was given, once.
class ListedFiles : public ForwardingFileManager
{
public:
    using ForwardingFileManager::ForwardingFileManager;
    void give(const std::vector<LightweightString<wchar_t>>& names)
    {
        // As a platform lists them.
        std::vector<LightweightString<wchar_t>> sorted = names;
        std::sort(sorted.begin(), sorted.end(),
                  [](const auto& a, const auto& b) { return a.view() < b.view(); });
        for (const auto& name : sorted)
            files_.add(name.view(), clipBytes);
    }
    bool listFiles(const Path&, FolderListing& files) override
    {
        files = std::exchange(files_, {});
        return true;
    }

private:
    FolderListing files_;
};

// Counts what the index takes of the platform's pages.
class CountedPages : public ForwardingPageMemory
{
public:
    using ForwardingPageMemory::ForwardingPageMemory;
    void* allocate(void* address, std::size_t size, unsigned type, unsigned protection) override
    {
        void* const memory = ForwardingPageMemory::allocate(address, size, type, protection);
        if (memory)
            count(memory, static_cast<std::int64_t>(size));
        return memory;
    }
    bool release(void* memory, unsigned freeType) override
    {
        if (memory)
            count(memory, 0);
        return ForwardingPageMemory::release(memory, freeType);
    }

private:
    void count(void* memory, std::int64_t bytes)
    {
        const std::lock_guard<std::mutex> hold(guard_);
        Allocations::countPages(bytes - std::exchange(bytes_[memory], bytes));
    }

    std::mutex guard_;
    std::map<void*, std::int64_t> bytes_;
};

// The platform of a run: what it lists and what pages it gives out is ours.
struct Platform
{
    Platform()
    {
        forwarding.use(files);
        forwarding.use(pages);
        setOS(&forwarding);
    }
    ~Platform()
    {
        SystemCache::invalidate();
        setOS(nullptr);
    }
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;

    ListedFiles files{*OS()->getFileManager()};
    CountedPages pages{*OS()->getPageMemory()};
    ForwardingOS forwarding{*OS()};
};

std::size_t findLength(const Cookie& clip) { return SystemCache::find(clip).getPath().size(); }

}  // namespace

Json peers::indexFsys(const Work& work)
{
    const std::vector<Cookie> clips = makeClips(work.clips);
    Platform platform;
    return measureIndex(work, clips,
                        {[&] { platform.files.give(makeClipNames(clips)); },
                         [] { SystemCache::addDirectory(MaterialFilename(clipDrive, clipFolder)); },
                         &findLength});
}

Json peers::indexFsysAdd(const Work& work)
{
    const std::vector<Cookie> clips = makeClips(work.clips);
    const Platform platform;
    const LightweightString<wchar_t> folder(clipFolder);
    std::vector<LightweightString<wchar_t>> names;
    const auto fill = [&] {
        for (std::size_t i = 0; i < clips.size(); ++i)
            SystemCache::addFile(
                clips[i], MediaFileInfo(MaterialFilename(clipDrive, folder + names[i]), clipBytes), false);
        names = {};
    };
    return measureIndex(work, clips, {[&] { names = makeClipNames(clips); }, fill, &findLength});
}
