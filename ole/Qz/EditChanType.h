#pragma once

// EditChanType: the kind of a channel of an edit. Values are stored in projects and never change.
enum EditChanType : int {
    EditChanVision = 1,       // pictures
    EditChanAudio = 2,        // sound
    EditChanAnyVision = 127,  // pictures, whichever channel carries them
};
