#include "HashBook.h"

#include "Answer.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

std::string nameOf(const LightweightString<wchar_t>& path)
{
    return std::filesystem::path(utf8(path)).filename().string();
}

// Bytes that are no text in the name become U+FFFD, in the book and in the question alike.
std::string lineOf(const std::string& name, const HashBook::Entry& entry)
{
    return Json{{"name", name}, {"bytes", entry.bytes}, {"xxh128", entry.hash}}.dump(
               -1, ' ', false, Json::error_handler_t::replace) +
           "\n";
}

std::string keyOf(const std::string& name)
{
    return Json::parse(Json(name).dump(-1, ' ', false, Json::error_handler_t::replace)).get<std::string>();
}

bool endsInsideALine(int file)
{
    char last = '\n';
    const off_t size = ::lseek(file, 0, SEEK_END);
    return size > 0 && ::pread(file, &last, 1, size - 1) == 1 && last != '\n';
}

// Adds text as one write; what a full disk took of it is cut off again.
bool append(int file, std::string text)
{
    if (::flock(file, LOCK_EX) != 0)
        return false;
    if (endsInsideALine(file))
        text.insert(text.begin(), '\n');
    const off_t end = ::lseek(file, 0, SEEK_END);
    const ssize_t written = ::write(file, text.data(), text.size());
    if (written == static_cast<ssize_t>(text.size()))
        return ::fsync(file) == 0;
    const int error = written < 0 ? errno : ENOSPC;
    if (::ftruncate(file, end) == 0)
        errno = error;
    return false;
}

}  // namespace

HashBook::HashBook(const std::string& space) : file_(space + "/MediaHashes.jsonl")
{
    std::ifstream lines(file_);
    for (std::string line; std::getline(lines, line);) {
        const Json object = Json::parse(line, nullptr, false);
        if (!object.is_object() || !object.contains("name") || !object.contains("bytes") ||
            !object.contains("xxh128") || !object["name"].is_string() ||
            !object["bytes"].is_number_unsigned() || !object["xxh128"].is_string())
            continue;
        entries_[object["name"].get<std::string>()] = {object["bytes"].get<std::uint64_t>(),
                                                       object["xxh128"].get<std::string>()};
    }
}

const HashBook::Entry* HashBook::find(const LightweightString<wchar_t>& path) const
{
    const auto found = entries_.find(keyOf(nameOf(path)));
    return found == entries_.end() ? nullptr : &found->second;
}

bool HashBook::add(const LightweightString<wchar_t>& path, std::uint64_t bytes, const std::string& hash)
{
    const std::string name = nameOf(path);
    const Entry entry{bytes, hash};
    const int file = ::open(file_.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    const bool kept = file >= 0 && append(file, lineOf(name, entry));
    if (!kept)
        complain("the hash of %s could not be kept in %s: %s", name.c_str(), file_.c_str(),
                 std::strerror(errno));
    if (file >= 0)
        ::close(file);
    if (kept)
        entries_[keyOf(name)] = entry;
    return kept;
}
