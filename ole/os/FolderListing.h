#pragma once

#include "Qz/Utf8.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// FolderListing: the names of a folder's files with their sizes, in the order in which they were added.
//
// All names stand in one text: a folder of a hundred thousand files costs a few allocations, not one each.
// Names are wide and without the folder.
//
// Threads:    none of its own; many readers or one writer at a time.
// Ownership:  a File's name is a view into the listing, valid until the listing changes.
class FolderListing
{
public:
    // One file of the listing.
    struct File
    {
        std::wstring_view name;  // without folder; see Ownership
        std::uint64_t size;      // bytes
    };

    // Files.
    [[nodiscard]] std::size_t size() const noexcept { return ends_.size(); }
    // True without files.
    [[nodiscard]] bool empty() const noexcept { return ends_.empty(); }
    // REQUIRES: index is below size().
    [[nodiscard]] File operator[](std::size_t index) const
    {
        const std::size_t begin = index == 0 ? 0 : ends_[index - 1].text;
        return {std::wstring_view(text_).substr(begin, ends_[index].text - begin), ends_[index].size};
    }

    // Appends a file.
    void add(std::wstring_view name, std::uint64_t sizeBytes)
    {
        text_ += name;
        ends_.push_back({text_.size(), sizeBytes});
    }
    // Appends a file whose name is UTF-8, converted by the rules of Utf8.h.
    void addUTF8(std::string_view name, std::uint64_t sizeBytes)
    {
        appendFromUTF8(text_, name);
        ends_.push_back({text_.size(), sizeBytes});
    }
    // Makes room for files whose names have so many characters together.
    void reserve(std::size_t files, std::size_t characters)
    {
        ends_.reserve(files);
        text_.reserve(characters);
    }
    // Removes all files; the memory is kept for the next ones.
    void clear() noexcept
    {
        text_.clear();
        ends_.clear();
    }

private:
    struct End
    {
        std::size_t text;    // where the name ends in text_; it begins where the one before ends
        std::uint64_t size;  // bytes of the file
    };

    std::wstring text_;
    std::vector<End> ends_;
};
