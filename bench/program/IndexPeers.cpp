// What else a million clips can be kept in. Each find makes the 40-character path that it returns.

#include "Clips.h"
#include "Peers.h"

#include <algorithm>
#include <list>
#include <map>
#include <memory>
#include <unordered_map>

namespace {

// Everything in full: the path, what a link points at, the proxies.
struct WholeEntry
{
    std::wstring path;
    std::wstring linkedName;
    std::list<std::wstring> proxies;
    std::uint64_t bytes = 0;
    std::uint32_t status = 0;
};

// As little as will do: the name follows from the cookie, the folder and the extension are numbers.
struct SmallRecord
{
    std::uint64_t clip;
    std::uint64_t bytes;
    std::uint16_t folder;
    std::uint16_t extension;
    std::uint8_t channel;
    char type;
};

SmallRecord recordOf(const Cookie& clip)
{
    return {clip.getClip(), clipBytes, 0, 0, clip.getChannel(), static_cast<char>(clip.getType())};
}

std::wstring pathOf(const SmallRecord& record)
{
    constexpr const wchar_t* digits = L"0123456789ABCDEF";
    std::wstring path;
    path.reserve(40);
    path += clipFolder;
    path.push_back(static_cast<wchar_t>(record.type));
    for (int shift = 60; shift >= 0; shift -= 4)
        path.push_back(digits[(record.clip >> shift) & 15]);
    path.push_back(digits[record.channel >> 4]);
    path.push_back(digits[record.channel & 15]);
    return path.append(clipExtension);
}

bool comesBefore(const SmallRecord& a, const SmallRecord& b)
{
    return std::tie(a.clip, a.type, a.channel) < std::tie(b.clip, b.type, b.channel);
}

struct HashOfClip
{
    // The numbers are random already.
    std::size_t operator()(const Cookie& clip) const { return clip.getClip() ^ clip.getChannel(); }
};

void nothing() {}

}  // namespace

Json peers::indexMap(const Work& work)
{
    const std::vector<Cookie> clips = makeClips(work.clips);
    std::vector<std::wstring> names;
    std::map<Cookie, std::shared_ptr<WholeEntry>> index;
    const auto fill = [&] {
        for (std::size_t i = 0; i < clips.size(); ++i) {
            auto entry = std::make_shared<WholeEntry>();
            entry->path = clipFolder + names[i];
            entry->bytes = clipBytes;
            index[clips[i]] = std::move(entry);
        }
        names = {};
    };
    const auto find = [&](const Cookie& clip) { return std::wstring(index.find(clip)->second->path).size(); };
    return measureIndex(work, clips, {[&] { names = makeWideNames(clips); }, fill, find});
}

Json peers::indexSorted(const Work& work)
{
    constexpr std::size_t batch = 100'000;
    const std::vector<Cookie> clips = makeClips(work.clips);
    std::vector<SmallRecord> index;
    const auto fill = [&] {
        for (std::size_t from = 0; from < clips.size(); from += batch) {
            const auto middle = static_cast<std::ptrdiff_t>(index.size());
            for (std::size_t i = from; i < std::min(from + batch, clips.size()); ++i)
                index.push_back(recordOf(clips[i]));
            std::sort(index.begin() + middle, index.end(), &comesBefore);
            std::inplace_merge(index.begin(), index.begin() + middle, index.end(), &comesBefore);
        }
    };
    const auto find = [&](const Cookie& clip) {
        return pathOf(*std::lower_bound(index.begin(), index.end(), recordOf(clip), &comesBefore)).size();
    };
    return measureIndex(work, clips, {&nothing, fill, find});
}

Json peers::indexUnordered(const Work& work)
{
    const std::vector<Cookie> clips = makeClips(work.clips);
    std::unordered_map<Cookie, SmallRecord, HashOfClip> index;
    const auto fill = [&] {
        for (const Cookie& clip : clips)
            index.emplace(clip, recordOf(clip));
    };
    const auto find = [&](const Cookie& clip) { return pathOf(index.find(clip)->second).size(); };
    return measureIndex(work, clips, {&nothing, fill, find});
}
