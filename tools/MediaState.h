#pragma once

#include "ClipStatus.h"
#include "MediaWatch.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

// MediaState: what there is to show of a project space at one moment.
//
// Units:  bytes, seconds, bytes per second. None: not known now.

struct LocationState
{
    std::string id;  // empty for a place that is listed and was never reached
    std::string name;
    std::string path;
    std::string type;  // unknown, local, removable, network, optical
    Reach reach = Reach::offline;
    std::optional<std::uint64_t> freeBytes;
    std::optional<std::uint64_t> totalBytes;
    std::optional<std::int64_t> minutesLeft;  // at recordRate; none also when there is no limit
    double recordRate = 0;                    // what recordings there grow by, else what the user expects
    bool slow = false;
    std::optional<double> answerSeconds;     // what the last question after its space took
    std::optional<std::uint64_t> readBytes;  // of its device, since that came
    std::optional<std::uint64_t> writtenBytes;
    std::optional<double> readRate;
    std::optional<double> writeRate;
};

// An unfinished recording.
struct RecordingState
{
    std::string location;  // id
    std::string file;
    std::string cookie;  // empty when the name is no clip's
    std::uint64_t bytes = 0;
    double rate = 0;
    bool growing = false;
    double idleSeconds = 0;  // since it was seen to grow
};

struct MediaState
{
    double time = 0;  // since 1970
    std::vector<LocationState> locations;
    ClipTotals clips;
    std::vector<Json> offlineClips;  // describeStatus of those that are offline, wholly or in part; not all
    std::vector<RecordingState> recordings;
};

// "online", "offline", "not_responding"
[[nodiscard]] const char* textOf(Reach reach);

// The whole state as one object; keys in the help of "fsys serve".
[[nodiscard]] Json describeState(const MediaState& state);
// The state as the text that monitoring programs collect (Metrics.h).
[[nodiscard]] std::string metricsOf(const MediaState& state);
