#pragma once

#include "MediaSummary.h"

#include <optional>
#include <string>
#include <vector>

// ClipStatus: which clips can be reached, and what somebody has to connect for those that cannot.

struct ClipTotals
{
    std::size_t clips = 0;
    std::size_t whole = 0;  // nothing offline
    std::size_t partly = 0;
    std::size_t away = 0;  // all offline
    std::size_t awayWithProxy = 0;

    void count(const MediaSummary& summary);
};

// What somebody has to make reachable for one file.
struct Place
{
    std::optional<DriveId> location;  // that holds the folder; none when no registered one does
    std::string folder;

    friend bool operator==(const Place&, const Place&) = default;
};

// Each place once; none for a clip of which nothing is offline.
[[nodiscard]] std::vector<Place> placesToConnect(const MediaSummary& summary);
// Keys: cookie, channels, offline, proxy_online, locations (id, name), primary_location, connect (location,
// name, folder).
[[nodiscard]] Json describeStatus(const MediaSummary& summary);
