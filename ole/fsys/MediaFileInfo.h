#pragma once

#include "Qz/LightweightString.h"
#include "Qz/iObject.h"
#include "fsys/Export.h"
#include "fsys/MaterialFilename.h"
#include "fsys/MaterialLink.h"
#include "fsys/MediaStatus.h"
#include "fsys/ShortGuard.h"

#include <atomic>
#include <cstdint>
#include <string_view>

// MediaFileInfo: one media file of a clip, full resolution or proxy. The cache keeps those of proxies by
// value, and makes that of a full-resolution file when it is asked for one.
//
// Links:      a file of exactly 512 bytes is a link file. Its target is read on first demand and kept; a
//             link that is rewritten later is not read again.
// Link state: 1 = target not read yet, 2 = a thread is storing it, 0 = the linked name is the answer.
// Threads:    size, status and the linked name may be read and changed from any threads at once. The
//             rest is fixed by construction; setMaterialFilename and assignment must not run beside readers.
// Locks:      a guard around copying and replacing the linked name; never held while the disk is asked.
// Copies:     start with a reference count of 0. A copy of a file whose target is not known yet, or is
//             being stored, reads the link for itself.
// Errors:     none reported; a link that cannot be read has an empty target, which is kept as well.
class FSYS_API MediaFileInfo : public iObject, public MaterialLink
{
public:
    // Height of a proxy whose name carries none.
    static constexpr unsigned noProxyHeight = 0xFFFFFFFFu;

    // No file: no drive, empty path, size 0.
    MediaFileInfo();
    // A file of size bytes. Height and audio channels of a proxy are taken from its relative path.
    MediaFileInfo(const MaterialFilename& file, std::uint64_t size);
    // The same for a link whose target is known already and is never read from the disk.
    MediaFileInfo(const MaterialFilename& file, const LightweightString<wchar_t>& linked, std::uint64_t size);
    MediaFileInfo(const MediaFileInfo& other);
    MediaFileInfo& operator=(const MediaFileInfo& other);
    ~MediaFileInfo() override;

    // Where the file is: drive, and path below its root.
    [[nodiscard]] const MaterialFilename& getMaterialFilename() const noexcept { return materialFilename_; }
    // Replaces drive and path only: linked name, proxy fields, size and status stay those of the old place.
    void setMaterialFilename(const MaterialFilename& file) { materialFilename_ = file; }

    // 0 for a file that is no proxy, noProxyHeight for a proxy whose name carries none.
    [[nodiscard]] unsigned getProxyHeight() const noexcept { return proxyHeight_; }
    // 0 for a file that is no proxy.
    [[nodiscard]] unsigned getProxyAudioChannels() const noexcept { return proxyAudioChannels_; }
    // By name alone.
    [[nodiscard]] bool isProxy() const { return isProxy(materialFilename_.getPath()); }
    // By size alone.
    [[nodiscard]] bool isLinkFile() const noexcept { return size == linkFileSize; }
    // See Link state.
    [[nodiscard]] unsigned getLinkState() const noexcept { return linkState_; }

    // OS path of this file; of a link file that of the link itself.
    [[nodiscard]] LightweightString<wchar_t> getLinkFileName() const;
    // Writes this file's link with the linked name as target; result as of MaterialLink::createLink, but a
    // name that is too long for a link is refused with a line in the log. The linked name is empty until it
    // was read or stored.
    bool createLinkFile(bool overwrite) const;
    // What this link file points at: kept, or read now. Callers that come first at the same time each
    // read the file; one of them keeps the answer, nobody waits for another.
    [[nodiscard]] LightweightString<wchar_t> readLinkedFilename() const;
    // Replaces the linked name, so that the disk is not asked from here on. False when another thread
    // began to store in between; then that thread's name stands. Of two stores at once, a first reader's
    // among them, either may stay.
    bool storeLinkedFilename(const LightweightString<wchar_t>& name) const;
    // OS path of the file whose bytes are to be read: the target of a link file, otherwise the file
    // itself. With resolve a link's target goes through the platform's path resolution.
    [[nodiscard]] LightweightString<wchar_t> getPhysicalFilename(bool resolve) const;

    // --- proxy names: STEM.A<channels>.proxy.<height>.EXTENSION; they work on the text alone

    // name may have directories; its last extension goes. extension comes without a dot.
    [[nodiscard]] static LightweightString<wchar_t> makeProxyName(LightweightString<wchar_t> name,
                                                                  LightweightString<wchar_t> extension,
                                                                  unsigned int height,
                                                                  unsigned char channels);
    // The number behind the first "proxy" of name; noProxyHeight when that is no height.
    [[nodiscard]] static unsigned int getProxyHeight(const LightweightString<wchar_t>& name);
    // The number behind the first ".A" of name, otherwise 0.
    [[nodiscard]] static unsigned int getProxyAudioChannels(const LightweightString<wchar_t>& name);
    // True when name carries a height, or is a path with a file "proxy-..." in a directory "proxy".
    [[nodiscard]] static bool isProxy(const LightweightString<wchar_t>& name);
    // True when text has the word without which no name is one of a proxy. The word has no separator in it,
    // so a path lacks it when each of its components does.
    [[nodiscard]] static bool hasProxyWord(std::wstring_view text) noexcept;

private:
    friend class FsysDirectoryEntry;  // keeps records in a smaller form and makes them again

    // What a record holds beside its name, size and status.
    struct Details
    {
        bool linkKnown = false;
        LightweightString<wchar_t> linkedFilename;
        std::uint32_t proxyHeight = 0;
        std::uint32_t proxyAudioChannels = 0;
    };
    // The record as it was, whatever its name would tell today.
    MediaFileInfo(const MaterialFilename& file, const Details& details, std::uint64_t size, unsigned status);
    [[nodiscard]] Details getDetails() const;

    enum : std::uint32_t { linkStored = 0, linkNotRead = 1, linkBeingStored = 2 };

    void readProxyFields();
    bool keepLinkedFilename(const LightweightString<wchar_t>& name) const;
    [[nodiscard]] LightweightString<wchar_t> copyLinkedFilename() const;
    [[nodiscard]] bool copyStoredFilename(LightweightString<wchar_t>& name) const;

    MaterialFilename materialFilename_;
    mutable std::atomic<std::uint32_t> linkState_{linkNotRead};
    mutable ShortGuard linkedFilenameGuard_;
    mutable LightweightString<wchar_t> linkedFilename_;
    std::uint32_t proxyHeight_ = 0;
    std::uint32_t proxyAudioChannels_ = 0;

public:
    std::atomic<std::uint64_t> size{0};                         // bytes, when the file was found
    mutable std::atomic<std::uint32_t> status{eStatusUnknown};  // an eMediaStatus; set by the cache alone
};
