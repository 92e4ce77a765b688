#include "MediaState.h"

#include "Metrics.h"

#include <functional>

namespace {

template <class Value>
Json orNull(const std::optional<Value>& value)
{
    return value ? Json(*value) : Json(nullptr);
}

Json orNull(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

Json describe(const LocationState& location)
{
    return {{"id", orNull(location.id)},
            {"name", location.name},
            {"path", location.path},
            {"type", orNull(location.type)},
            {"status", textOf(location.reach)},
            {"free_bytes", orNull(location.freeBytes)},
            {"total_bytes", orNull(location.totalBytes)},
            {"minutes_left", orNull(location.minutesLeft)},
            {"record_rate", location.recordRate},
            {"slow", location.slow},
            {"answer_seconds", orNull(location.answerSeconds)},
            {"read_bytes", orNull(location.readBytes)},
            {"written_bytes", orNull(location.writtenBytes)},
            {"read_rate", orNull(location.readRate)},
            {"write_rate", orNull(location.writeRate)}};
}

Json describe(const RecordingState& recording)
{
    return {{"location", recording.location},
            {"file", recording.file},
            {"cookie", orNull(recording.cookie)},
            {"bytes", recording.bytes},
            {"rate", recording.rate},
            {"growing", recording.growing},
            {"idle_seconds", recording.idleSeconds}};
}

Json describe(const ClipTotals& clips, const std::vector<Json>& listed)
{
    return {{"total", clips.clips},
            {"whole", clips.whole},
            {"partly_offline", clips.partly},
            {"offline", clips.away},
            {"offline_with_proxy", clips.awayWithProxy},
            {"listed", listed}};
}

using Figure = std::function<std::optional<double>(const LocationState&)>;

template <class Value>
std::optional<double> number(const std::optional<Value>& value)
{
    return value ? std::optional(static_cast<double>(*value)) : std::nullopt;
}

void addLocations(Metrics& metrics, const MediaState& state)
{
    const auto add = [&](const char* name, const char* type, const char* help, const Figure& figure) {
        metrics.family(std::string("fsys_location_") + name, type, help);
        for (const LocationState& location : state.locations)
            if (const auto value = figure(location))
                metrics.sample({{"location", location.id}, {"name", location.name}, {"path", location.path}},
                               *value);
    };
    add("online", "gauge", "1 while the media location can be reached.",
        [](const auto& l) { return l.reach == Reach::online ? 1.0 : 0.0; });
    add("not_responding", "gauge", "1 while the server of the media location does not answer.",
        [](const auto& l) { return l.reach == Reach::notResponding ? 1.0 : 0.0; });
    add("slow", "gauge", "1 while the volume answers slowly.",
        [](const auto& l) { return l.slow ? 1.0 : 0.0; });
    add("free_bytes", "gauge", "Bytes that may still be written.",
        [](const auto& l) { return number(l.freeBytes); });
    add("size_bytes", "gauge", "All bytes of the volume.",
        [](const auto& l) { return number(l.totalBytes); });
    add("recording_minutes_left", "gauge", "Whole minutes of recording that find room.",
        [](const auto& l) { return number(l.minutesLeft); });
    add("answer_seconds", "gauge", "What the last question after the space took.",
        [](const auto& l) { return l.answerSeconds; });
    add("read_bytes_total", "counter", "Bytes read from the device, by all programs of this machine.",
        [](const auto& l) { return number(l.readBytes); });
    add("written_bytes_total", "counter", "Bytes written to the device, by all programs of this machine.",
        [](const auto& l) { return number(l.writtenBytes); });
}

void addClips(Metrics& metrics, const ClipTotals& clips)
{
    metrics.family("fsys_clips", "gauge", "Clips by how much of their media can be reached.");
    metrics.sample({{"media", "whole"}}, static_cast<double>(clips.whole));
    metrics.sample({{"media", "partly_offline"}}, static_cast<double>(clips.partly));
    metrics.sample({{"media", "offline"}}, static_cast<double>(clips.away));
}

void addRecordings(Metrics& metrics, const std::vector<RecordingState>& recordings)
{
    metrics.family("fsys_recording_bytes", "gauge", "Bytes of an unfinished recording.");
    for (const RecordingState& recording : recordings)
        metrics.sample({{"location", recording.location}, {"file", recording.file}},
                       static_cast<double>(recording.bytes));
    metrics.family("fsys_recording_growing", "gauge", "1 while an unfinished recording grows.");
    for (const RecordingState& recording : recordings)
        metrics.sample({{"location", recording.location}, {"file", recording.file}},
                       recording.growing ? 1.0 : 0.0);
}

}  // namespace

const char* textOf(Reach reach)
{
    return reach == Reach::online ? "online" : reach == Reach::offline ? "offline" : "not_responding";
}

Json describeState(const MediaState& state)
{
    Json locations = Json::array();
    for (const LocationState& location : state.locations)
        locations.push_back(describe(location));
    Json recordings = Json::array();
    for (const RecordingState& recording : state.recordings)
        recordings.push_back(describe(recording));
    return {{"time", state.time},
            {"locations", locations},
            {"clips", describe(state.clips, state.offlineClips)},
            {"recordings", recordings}};
}

std::string metricsOf(const MediaState& state)
{
    Metrics metrics;
    addLocations(metrics, state);
    addClips(metrics, state.clips);
    addRecordings(metrics, state.recordings);
    return metrics.text();
}
