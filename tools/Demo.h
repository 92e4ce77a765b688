#pragma once

#include "Command.h"

#include <string>

struct DemoArguments
{
    std::string folder;  // empty: a folder below the one for temporary files
    std::string media;   // empty: media is made
    double seconds = 3;  // of playback
};

// The newcomer's first minute: makes or links media in two locations, forgets it, finds it again from the
// files, plays it and verifies every byte. Answers in plain words, or with one JSON object.
int runDemo(const Options& options, const DemoArguments& given);
