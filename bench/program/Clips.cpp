#include "Clips.h"

#include <random>
#include <stdexcept>

std::vector<Cookie> makeClips(std::uint64_t count)
{
    std::mt19937_64 random(count);
    std::vector<Cookie> clips;
    clips.reserve(count);
    for (std::uint64_t i = 0; i < count; ++i)
        clips.emplace_back(CookieTypeVision, random(), static_cast<unsigned char>(0));
    return clips;
}

std::vector<LightweightString<wchar_t>> makeClipNames(const std::vector<Cookie>& clips)
{
    std::vector<LightweightString<wchar_t>> names;
    names.reserve(clips.size());
    for (const Cookie& clip : clips)
        names.push_back(clip.asWString() + clipExtension);
    return names;
}

std::vector<std::wstring> makeWideNames(const std::vector<Cookie>& clips)
{
    std::vector<std::wstring> names;
    names.reserve(clips.size());
    for (const Cookie& clip : clips)
        names.push_back(std::wstring(clip.asWString().view()) + clipExtension);
    return names;
}

Json measureIndex(const Work& work, const std::vector<Cookie>& clips, const IndexUnderTest& index)
{
    const std::uint64_t usedBefore = Allocations::bytesInUse();
    const std::uint64_t residentBefore = Allocations::bytesResident();
    index.prepare();
    Meter filling;
    filling.start();
    index.fill();
    filling.stop();
    const auto count = static_cast<double>(clips.size());
    const auto perClip = [&](std::uint64_t after, std::uint64_t before) {
        return (static_cast<double>(after) - static_cast<double>(before)) / count;
    };
    const double usedPerClip = perClip(Allocations::bytesInUse(), usedBefore);
    const double residentPerClip = perClip(Allocations::bytesResident(), residentBefore);

    std::mt19937_64 random(1);
    std::vector<std::uint32_t> order(work.finds);
    for (std::uint32_t& place : order)
        place = static_cast<std::uint32_t>(random() % clips.size());
    std::uint64_t characters = 0;
    Meter finding;
    Allocations::startCounting();
    finding.start();
    for (const std::uint32_t place : order)
        characters += index.find(clips[place]);
    finding.stop();
    const double allocations =
        static_cast<double>(Allocations::stopCounting()) / static_cast<double>(work.finds);
    if (characters != work.finds * 40)
        throw std::runtime_error("clips were found under paths of " + std::to_string(characters) +
                                 " characters");

    Json report = finding.report(work.finds, 0);
    report["clips"] = clips.size();
    report["fill_ns"] = filling.seconds() * 1e9 / count;
    report["fill"] = filling.report(clips.size(), 0);
    report["find_ns"] = finding.seconds() * 1e9 / static_cast<double>(work.finds);
    report["fill_cpu_ns"] = report["fill"]["cpu_us_per_request"].get<double>() * 1e3;
    report["find_cpu_ns"] = report["cpu_us_per_request"].get<double>() * 1e3;
    report["bytes_per_clip"] = usedPerClip;
    report["resident_per_clip"] = residentPerClip;
    report["allocations_per_find"] = allocations;
    return report;
}
