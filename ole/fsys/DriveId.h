#pragma once

#include "Qz/LightweightString.h"
#include "fsys/Export.h"

#include <compare>
#include <functional>

// DriveId: names one media location (a drive or a folder) by a single character.
//
// The character '0' names none. Which location a character stands for is known to the drive registry
// alone; it may change its name or its root without touching the file names that are stored elsewhere.
class FSYS_API DriveId
{
public:
    // Names none.
    constexpr DriveId() noexcept = default;
    // Any character; that it is registered is not checked.
    constexpr explicit DriveId(char id) noexcept : id_(id) {}

    // False for the identifier that names no media location.
    [[nodiscard]] constexpr bool valid() const noexcept { return id_ != none; }
    // The character; '0' for none.
    [[nodiscard]] constexpr char asChar() const noexcept { return id_; }
    // The identifier as a text of exactly one character.
    [[nodiscard]] LightweightString<char> asString() const;

    // Each by the character.
    friend constexpr bool operator==(DriveId, DriveId) noexcept = default;
    friend constexpr auto operator<=>(DriveId, DriveId) noexcept = default;

private:
    static constexpr char none = '0';

    char id_ = none;
};

// For unordered containers.
template <>
struct std::hash<DriveId>
{
    // That of the character.
    std::size_t operator()(DriveId id) const noexcept { return std::hash<char>()(id.asChar()); }
};
