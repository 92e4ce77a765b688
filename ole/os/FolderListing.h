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
    struct File
    {
        std::wstring_view name;
        std::uint64_t size;  // bytes
    };

    [[nodiscard]] std::size_t size() const noexcept { return ends_.size(); }
    [[nodiscard]] bool empty() const noexcept { return ends_.empty(); }
    // REQUIRES: index is below size().
    [[nodiscard]] File operator[](std::size_t index) const
    {
        const std::size_t begin = index == 0 ? 0 : ends_[index - 1].text;
        return {std::wstring_view(text_).substr(begin, ends_[index].text - begin), ends_[index].size};
    }

    void add(std::wstring_view name, std::uint64_t sizeBytes)
    {
        text_ += name;
        ends_.push_back({text_.size(), sizeBytes});
    }
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
