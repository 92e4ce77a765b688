#pragma once

// Bits of the open flags of FsysOpen. All bits are passed on to the platform's open call.
constexpr unsigned fsysOpenRead = 1;   // selects the read rule of the open mode
constexpr unsigned fsysOpenWrite = 2;  // opened for writing, at the end of what is there
