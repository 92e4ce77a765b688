#include "support/LogFile.h"

#include <filesystem>
#include <string>
#include <system_error>

#include "support/UserFolders.h"

namespace {

std::FILE* openForAppending(const std::string& path)
{
    std::error_code error;
    // Opening a pipe that nobody reads would wait for ever.
    if (path.empty() || std::filesystem::is_fifo(path, error))
        return nullptr;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    std::FILE* file = std::fopen(path.c_str(), "ae");
    if (file)
        std::setvbuf(file, nullptr, _IONBF, 0);
    return file;
}

std::FILE* openLogFile()
{
    std::FILE* named = openForAppending(environmentText("FSYS_LOG"));
    return named ? named : openForAppending(userFile("XDG_STATE_HOME", ".local/state", "fsys/fsys.log"));
}

}  // namespace

void LogFile::append(std::string_view text)
{
    if (!tried_)
        file_ = openLogFile();
    tried_ = true;
    if (file_)
        std::fwrite(text.data(), 1, text.size(), file_);
}
