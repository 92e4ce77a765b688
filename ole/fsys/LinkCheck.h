#pragma once

#include "fsys/MaterialLink.h"
#include "os/iFile.h"

#include <array>
#include <optional>
#include <string_view>

// Whether a file that is open for reading is a link. Nothing, with the last error set, when its size or start
// cannot be told: such a file must not be taken for media, for it may be readable a moment later, and what is
// read then are the bytes of the link.
[[nodiscard]] inline std::optional<bool> tellLink(iFile& file)
{
    constexpr std::string_view mediaBegins = "RIFF";
    FILE_INFO info;
    if (!file.getInfo(&info))
        return {};
    if (info.size != MaterialLink::linkFileSize)
        return false;
    std::array<char, MaterialLink::linkFileSize> contents{};
    if (!file.read(0, contents.data(), contents.size(), nullptr))
        return {};
    return !std::string_view(contents.data(), contents.size()).starts_with(mediaBegins);
}
