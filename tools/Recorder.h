#pragma once

#include "Qz/Cookie.h"
#include "TimedTransfer.h"
#include "fsys/DriveId.h"
#include "media/MediaWriter.h"

#include <cstdint>
#include <vector>

// Recorder: streams of frames written at their pace, as an application records them.

struct RecordingPlan
{
    DriveId location{'0'};
    double framesPerSecond = 25;
    std::uint64_t frameBytes = 0;
    double seconds = 5;
    unsigned streams = 1;
    std::uint64_t lowSpaceBytes = std::uint64_t{1} << 30;
    bool keepTransfers = false;
};

struct RecordedStream
{
    Cookie cookie;
    MediaRecording recording;
    std::uint64_t frames = 0;      // written
    std::uint64_t lateWrites = 0;  // returned after the next frame was due
    double worstWriteMs = 0;       // the longest that a write took
    bool spaceWasLow = false;
    double seconds = 0;                    // from the first frame to the end of the file
    std::vector<TimedTransfer> transfers;  // one for each write, when the plan keeps them
};

struct RecordingResult
{
    std::vector<RecordedStream> streams;
    double seconds = 0;  // from the first frame to the last file's end
    bool interrupted = false;
};

// Records the streams side by side, each a clip of its own of bytes that do not repeat soon. An interruption
// ends them early and in order.
[[nodiscard]] RecordingResult record(const RecordingPlan& plan);
