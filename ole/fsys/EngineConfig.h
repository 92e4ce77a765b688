#pragma once

// EngineConfig: the configuration integers of the I/O engine, read once when the library is loaded. A
// change of the configuration means nothing to a process that runs.
struct EngineConfig
{
    int readPollDelayMs;      // wait of the read poll thread between passes
    int writePollDelayMs;     // the same for writes; a close sleeps twice this between its looks
    int maxRequestListSize;   // requests of one file and direction beyond which room must be made
    int forcePollLimit;       // deferred requests after which the poll thread is woken anyway
    int maxWriteRetries;      // further tries of a direct write that found its list full
    int dontBufferNetReads;   // not 0: network files are read unbuffered like local ones
    int disableSetOwner;      // not 0: a write open on a network drive leaves the file's owner alone
    int alwaysUseWriteCache;  // exactly 1: with network write caching on, every write is gathered
    int minNetDiskRate;       // bytes per millisecond under which a larger transfer is slow
    int maxNetReadQueue;      // thousands of bytes of one file waiting to be read that mean slow
    int maxNetWriteQueue;     // the same for writes
    int showReadBufferDebug;
    int showWriteBufferDebug;
    int showRequestDebug;
    int maxAllocRetries;  // read and kept; allocations are not retried here but by later passes
};

extern const EngineConfig engineConfig;
