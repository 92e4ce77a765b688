// The media cache with a million clips, filled by a scan of a folder that is on no disk, or file by file.

#include "Clips.h"
#include "Peers.h"
#include "fsys/SystemCache.h"
#include "os/OS.h"
#include "os/testing/ForwardingOS.h"

#include <algorithm>
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

std::size_t findLength(const Cookie& clip) { return SystemCache::find(clip).getPath().size(); }

}  // namespace

Json peers::indexFsys(const Work& work)
{
    const std::vector<Cookie> clips = makeClips(work.clips);
    ForwardingOS platform(*OS());
    ListedFiles files(*OS()->getFileManager());
    platform.use(files);
    setOS(&platform);
    Json report = measureIndex(work, clips,
                               {[&] { files.give(makeClipNames(clips)); },
                                [] { SystemCache::addDirectory(MaterialFilename(clipDrive, clipFolder)); },
                                &findLength});
    SystemCache::invalidate();
    setOS(nullptr);
    return report;
}

Json peers::indexFsysAdd(const Work& work)
{
    const std::vector<Cookie> clips = makeClips(work.clips);
    const LightweightString<wchar_t> folder(clipFolder);
    std::vector<LightweightString<wchar_t>> names;
    const auto fill = [&] {
        for (std::size_t i = 0; i < clips.size(); ++i)
            SystemCache::addFile(
                clips[i], MediaFileInfo(MaterialFilename(clipDrive, folder + names[i]), clipBytes), false);
        names = {};
    };
    Json report = measureIndex(work, clips, {[&] { names = makeClipNames(clips); }, fill, &findLength});
    SystemCache::invalidate();
    return report;
}
