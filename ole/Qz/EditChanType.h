#pragma once

// EditChanType: the kind of a channel of an edit. Values are stored in projects and never change.
enum EditChanType : int {
    EditChanVision = 1,
    EditChanAudio = 2,
    EditChanAnyVision = 127,
};
