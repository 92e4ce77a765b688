#pragma once

#include "Qz/LightweightString.h"
#include "fsys/Export.h"
#include "fsys/MaterialFilename.h"
#include "os/iFile.h"

#include <cstdint>
#include <optional>

// MaterialLink: link files, which stand on one media location for media that lies elsewhere.
//
// Format:     exactly 512 bytes: the target path in UTF-8, a zero byte, zeros to the end. The size is
//             the mark of a link. The one exception is a file that begins with "RIFF": that is a very
//             small media file.
// Threads:    any; each operation opens, uses and closes a handle of its own. Of two writers of one
//             link the last one wins.
// Errors:     told by the result. A link that cannot be opened or read is reported to the platform and
//             counts as no link.
class FSYS_API MaterialLink
{
public:
    static constexpr std::uint64_t linkFileSize = 512;  // bytes

    // True when osPath is a link. target becomes what the caller should open: what the link points at,
    // or osPath itself when it is no link; empty when a link-sized file could not be read. target may be
    // the same object as osPath.
    static bool getLinkedFilename(const LightweightString<wchar_t>& osPath,
                                  LightweightString<wchar_t>& target);
    // The target that getLinkedFilename leaves for the file.
    [[nodiscard]] static LightweightString<wchar_t> resolveLink(const MaterialFilename& file);
    // True when the file is a link and its target exists; false for a file that is no link.
    [[nodiscard]] static bool linkedFileExists(const MaterialFilename& file);
    // True when osPath has the form of a link; false when it cannot be read. The target is not looked for.
    [[nodiscard]] static bool isLink(const LightweightString<wchar_t>& osPath);
    // The same for a file that is open for reading. Nothing, with the last error set, when its size or start
    // cannot be told: such a file must not be taken for media, for it may be readable a moment later, and
    // what is read then are the bytes of the link.
    [[nodiscard]] static std::optional<bool> tellLink(iFile& file);

    // Writes a link at osPath; true when it was written whole. Without overwrite the file must not exist.
    // With overwrite an existing file of at most 512 bytes is rewritten; a longer one is media: it stays
    // as it is, an assertion line is printed and the result is false. One whose size cannot be told is
    // not touched either, without a line. A link that was made here and could not be written whole is
    // removed again.
    // REQUIRES: target has less than 512 bytes in UTF-8. A longer one stops the process before osPath is
    // touched, because a shortened path would name another file.
    static bool createLink(const LightweightString<wchar_t>& osPath, const LightweightString<wchar_t>& target,
                           bool overwrite);
};
