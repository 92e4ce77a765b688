#pragma once

// Media status of a file, of all files of one kind, or of a clip.
enum eMediaStatus : unsigned {
    eStatusUnknown = 0,  // not tested yet
    eStatusOffline = 1,  // tested: the file, or the one that its link points at, is missing
    eStatusOnline = 2,   // tested: it is there
};
