#pragma once

#include "Meter.h"
#include "Work.h"

// Peers: the ways of doing a piece of work that one run can take. Each prepares itself, measures, and
// answers with the run's report. They throw when the work cannot be done.
namespace peers {

// Reads of whole files: all that work.paths names, each with work.depth requests under way.
Json readFsys(const Work& work);   // the engine: FsysOpen and DirectRead
Json readMedia(const Work& work);  // MediaReader above it
Json readUring(const Work& work);  // io_uring, a plain loop
Json readUringTuned(
    const Work& work);             // huge pages, registered file and buffers, deferred task work, batches
Json readPread(const Work& work);  // one thread per request under way
Json readPreadSpread(const Work& work);  // two threads, each block into other memory than the ones before
Json readLibuv(const Work& work);
Json readAsio(const Work& work);
Json readPosixAio(const Work& work);
Json readMmap(const Work& work);    // one thread, copies block by block
Json readFfmpeg(const Work& work);  // one thread, avio_read on the file protocol

// One read at a time, timed: from the call to its return, to the data, and until the caller goes on.
Json latencyFsys(const Work& work);
Json latencyFsysStages(const Work& work);  // with the time between the engine's stations
Json latencyPread(const Work& work);
Json latencyRelay(const Work& work);  // pread, between two wake-ups
Json latencyUring(const Work& work);

// Names and sizes of all files of folders.
Json scanFsys(const Work& work);     // the media cache, its index included
Json scanNames(const Work& work);    // readdir alone
Json scanFstatat(const Work& work);  // readdir and fstatat
Json scanStatx2(const Work& work);   // the same with statx, by two threads

// A million clips: filling an index and finding in it.
Json indexFsys(const Work& work);       // filled by a scan
Json indexFsysAdd(const Work& work);    // filled file by file
Json indexMap(const Work& work);        // an ordered map of shared entries with wide strings
Json indexSorted(const Work& work);     // small records, sorted in batches
Json indexUnordered(const Work& work);  // a hash map of the same small records

}  // namespace peers
