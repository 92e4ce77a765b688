#include "fsys/StoredFile.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr std::uint32_t oneByteMax = 0xFF;

// The folder with its separator.
std::wstring_view folderOf(std::wstring_view path) { return path.substr(0, path.rfind(L'/') + 1); }

wchar_t widened(char character) { return static_cast<unsigned char>(character); }
wchar_t widened(wchar_t character) { return character; }

}  // namespace

StoredFile::StoredFile(const MaterialFilename& file, std::uint64_t sizeBytes, unsigned status)
    : sizeBytes_(sizeBytes), drive_(file.getDrive()), status_(static_cast<std::uint8_t>(status))
{
    if (file.getPath().isNull())
        return;
    const std::wstring_view path = file.getPath().view();
    const std::wstring_view folder = folderOf(path);
    folder_ = FolderName(folder);
    storeName(path.substr(folder.size()));
}

StoredFile::StoredFile(DriveId drive, const FolderName& folder, std::wstring_view name,
                       std::uint64_t sizeBytes, unsigned status)
    : folder_(folder), sizeBytes_(sizeBytes), drive_(drive), status_(static_cast<std::uint8_t>(status))
{
    storeName(name);
}

StoredFile::StoredFile(StoredFile&& other) noexcept { swap(other); }

StoredFile& StoredFile::operator=(StoredFile&& other) noexcept
{
    StoredFile(std::move(other)).swap(*this);
    return *this;
}

StoredFile::~StoredFile()
{
    if (form_ != Form::here)
        delete[] beside();
}

void StoredFile::swap(StoredFile& other) noexcept
{
    std::swap(folder_, other.folder_);
    std::swap(sizeBytes_, other.sizeBytes_);
    std::swap(nameLength_, other.nameLength_);
    std::swap(drive_, other.drive_);
    std::swap(status_, other.status_);
    std::swap(form_, other.form_);
    std::swap(name_, other.name_);
}

char* StoredFile::beside() const noexcept
{
    char* bytes = nullptr;
    std::memcpy(&bytes, name_.data(), sizeof(bytes));
    return bytes;
}

// The fields change only once there is memory: until then the name is empty and lies in the record.
void StoredFile::storeName(std::wstring_view name)
{
    const bool isNarrow = std::all_of(name.begin(), name.end(), [](wchar_t character) {
        return static_cast<std::uint32_t>(character) <= oneByteMax;
    });
    char* bytes = name_.data();
    if (!isNarrow || name.size() > name_.size()) {
        bytes = new char[isNarrow ? name.size() : name.size() * sizeof(wchar_t)];
        std::memcpy(name_.data(), &bytes, sizeof(bytes));
        form_ = isNarrow ? Form::beside : Form::besideWide;
    }
    if (isNarrow)
        std::transform(name.begin(), name.end(), bytes,
                       [](wchar_t character) { return static_cast<char>(character); });
    else
        std::memcpy(bytes, name.data(), name.size() * sizeof(wchar_t));
    nameLength_ = static_cast<std::uint32_t>(name.size());
}

template <class Use>
auto StoredFile::withName(Use use) const
{
    if (form_ == Form::besideWide)
        return use(std::wstring_view(reinterpret_cast<const wchar_t*>(beside()), nameLength_));
    return use(std::string_view(form_ == Form::here ? name_.data() : beside(), nameLength_));
}

bool StoredFile::isPresent() const noexcept
{
    return drive_.valid() && (nameLength_ != 0 || !folder_.view().empty());
}

MaterialFilename StoredFile::filename() const
{
    if (folder_.isNone())
        return {drive_, {}};
    const std::wstring_view folder = folder_.view();
    return withName([&](auto name) {
        const auto write = [&](wchar_t* to) {
            to = std::copy(folder.begin(), folder.end(), to);
            std::transform(name.begin(), name.end(), to, [](auto character) { return widened(character); });
        };
        return MaterialFilename(drive_,
                                LightweightString<wchar_t>::written(folder.size() + name.size(), write));
    });
}

bool StoredFile::isNamed(const MaterialFilename& file) const noexcept
{
    const std::wstring_view path = file.getPath().view();
    const std::wstring_view folder = folder_.view();
    if (drive_ != file.getDrive() || path.size() != folder.size() + nameLength_ || !path.starts_with(folder))
        return false;
    return withName([&](auto name) {
        return std::equal(name.begin(), name.end(), path.begin() + folder.size(),
                          [](auto a, wchar_t b) { return widened(a) == b; });
    });
}
