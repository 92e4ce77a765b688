#include "fsys/EngineConfig.h"

#include "support/ConfigInt.h"

const EngineConfig engineConfig{
    config_int("ReadPollDelay", 50),        config_int("WritePollDelay", 50),
    config_int("MaxRequestListSize", 40),   config_int("ForcePollLimit", 30),
    config_int("MaxFsysWriteRetries", 200), config_int("DontBuffNetReads", 0),
    config_int("DisableSetOwner", 0),       config_int("AlwaysUseWriteCache", 0),
    config_int("MinNetDiskRate", 300),      config_int("MaxNetReadQueue", 1000),
    config_int("MaxNetWriteQueue", 1500),   config_int("ShowReadBuffDebug", 0),
    config_int("ShowWriteBuffDebug", 0),    config_int("ShowRequestDebug", 0),
    config_int("kMaxAllocRetries", 20),
};
