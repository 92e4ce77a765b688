#pragma once

#include <cstddef>
#include <string_view>

// FolderName: the text of a folder, kept once for all the files in it.
//
// Threads:    any; the text never changes.
// Ownership:  shared by its holders; the last one takes it out of the table.
class FolderName
{
public:
    // None, which is not the folder of an empty text.
    FolderName() noexcept = default;
    // The folder of that text; shared with all that have the same.
    explicit FolderName(std::wstring_view text);
    FolderName(const FolderName& other) noexcept;
    FolderName(FolderName&& other) noexcept;
    // Takes over what other holds.
    FolderName& operator=(FolderName other) noexcept;
    ~FolderName();

    // True when it holds no folder at all.
    [[nodiscard]] bool isNone() const noexcept { return !body_; }
    // Empty for none. The text lives as long as a holder.
    [[nodiscard]] std::wstring_view view() const noexcept;

    // Different folders that are held at the moment.
    [[nodiscard]] static std::size_t countHeld();

private:
    struct Body;
    struct Table;

    Body* body_ = nullptr;
};
