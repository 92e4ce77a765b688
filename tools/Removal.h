#pragma once

#include "Answer.h"
#include "ClipFiles.h"

#include <vector>

// Removal: what the deletion of media files takes along, told before and checked afterwards.

struct RemovalItem
{
    enum Kind { media, companion, target };

    LightweightString<wchar_t> path;
    Kind kind = media;
};

struct RemovalReport
{
    struct Left
    {
        RemovalItem item;
        std::string reason;
    };

    std::vector<RemovalItem> removed;
    std::vector<Left> left;
};

// What the cache deletes from disk with these files: the files, their companions (files named after them
// with "." and more), and targets of links that lie below the link's own folder. Each path once.
[[nodiscard]] std::vector<RemovalItem> planRemoval(const std::vector<TestedFile>& files);

// Which of the plan has gone. Media and companions that are still there are tried once more, to learn the
// reason.
[[nodiscard]] RemovalReport checkRemoval(const std::vector<RemovalItem>& plan);

// The first of leaving that is the same file on disk as one of staying, perhaps under another name.
[[nodiscard]] const TestedFile* findShared(const std::vector<TestedFile>& leaving,
                                           const std::vector<TestedFile>& staying);

// Keys of each: file, kind (media, companion, target).
[[nodiscard]] Json describeItems(const std::vector<RemovalItem>& items);
// Answers with cookie, dry_run, removed and failed, and complains about each that is left. The exit status.
int answerRemoval(bool json, const Cookie& cookie, const RemovalReport& report);
int answerPlan(bool json, const Cookie& cookie, const std::vector<RemovalItem>& plan);
