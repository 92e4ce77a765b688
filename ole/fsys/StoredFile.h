#pragma once

#include "Qz/LightweightString.h"
#include "fsys/DriveId.h"
#include "fsys/FolderName.h"
#include "fsys/MaterialFilename.h"
#include "fsys/MediaStatus.h"

#include <array>
#include <cstdint>
#include <string_view>

// StoredFile: where a media file is, its size and status, in 48 bytes; there is one for each clip.
//
// Folders are shared. A name of up to 24 characters, each of one byte, lies in the record itself, a longer
// one beside it; one that has other characters is kept in full width, so every path comes back as it was.
//
// Threads:    none of its own.
// Errors:     running out of memory throws std::bad_alloc; the record is what it was.
class StoredFile
{
public:
    // No drive, a null path, size 0, untested.
    StoredFile() noexcept = default;
    // Drive and path of file.
    StoredFile(const MaterialFilename& file, std::uint64_t sizeBytes, unsigned status);
    // The path is folder followed by name.
    StoredFile(DriveId drive, const FolderName& folder, std::wstring_view name, std::uint64_t sizeBytes,
               unsigned status);
    StoredFile(const StoredFile&) = delete;
    StoredFile& operator=(const StoredFile&) = delete;
    StoredFile(StoredFile&& other) noexcept;
    StoredFile& operator=(StoredFile&& other) noexcept;
    ~StoredFile();

    // True when the record stands for a file: it has a drive and a path.
    [[nodiscard]] bool isPresent() const noexcept;
    // The media location; none for a record without file.
    [[nodiscard]] DriveId drive() const noexcept { return drive_; }
    // Bytes, when the file was found.
    [[nodiscard]] std::uint64_t sizeBytes() const noexcept { return sizeBytes_; }
    // An eMediaStatus.
    [[nodiscard]] unsigned status() const noexcept { return status_; }
    // One allocation, for the path.
    [[nodiscard]] MaterialFilename filename() const;
    // Same drive and path.
    [[nodiscard]] bool isNamed(const MaterialFilename& file) const noexcept;

    // Moves the record to another location; the path stays.
    void setDrive(DriveId drive) noexcept { drive_ = drive; }
    // Bytes of the file.
    void setSizeBytes(std::uint64_t sizeBytes) noexcept { sizeBytes_ = sizeBytes; }
    // An eMediaStatus.
    void setStatus(unsigned status) noexcept { status_ = static_cast<std::uint8_t>(status); }

private:
    enum class Form : std::uint8_t { here, beside, besideWide };

    void storeName(std::wstring_view name);
    void swap(StoredFile& other) noexcept;
    [[nodiscard]] char* beside() const noexcept;
    // Calls use with the name, as a view of char or of wchar_t.
    template <class Use>
    auto withName(Use use) const;

    FolderName folder_;  // up to the last separator; none for a null path
    std::uint64_t sizeBytes_ = 0;
    std::uint32_t nameLength_ = 0;
    DriveId drive_;
    std::uint8_t status_ = eStatusUnknown;
    Form form_ = Form::here;
    // The name, or the address of the bytes beside; where addresses lie, so that leak checkers find it.
    alignas(char*) std::array<char, 24> name_{};
};
