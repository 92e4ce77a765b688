#pragma once

#include "Allocations.h"
#include "Meter.h"
#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "Work.h"
#include "fsys/DriveId.h"

#include <functional>
#include <string>
#include <vector>

// The clips that an index is filled with: one media file each, with a path of 40 characters.
constexpr const wchar_t* clipFolder = L"/Material/Reel01/";
// Named but not registered: such a drive's paths are used as they stand.
constexpr DriveId clipDrive('1');
constexpr const wchar_t* clipExtension = L".mov";
constexpr std::uint64_t clipBytes = 123'456'789;

// Random numbers in no order.
[[nodiscard]] std::vector<Cookie> makeClips(std::uint64_t count);
// In the order of the clips.
[[nodiscard]] std::vector<LightweightString<wchar_t>> makeClipNames(const std::vector<Cookie>& clips);
[[nodiscard]] std::vector<std::wstring> makeWideNames(const std::vector<Cookie>& clips);

// Measures the filling of an index with work.clips clips and work.finds random finds in it.
// prepare makes what a filling is given (names) and is not measured; its memory is expected to be gone
// after fill. find answers a path's length, for a proof that it found.
struct IndexUnderTest
{
    std::function<void()> prepare;
    std::function<void()> fill;
    std::function<std::size_t(const Cookie&)> find;
};
[[nodiscard]] Json measureIndex(const Work& work, const std::vector<Cookie>& clips,
                                const IndexUnderTest& index);
