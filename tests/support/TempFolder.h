#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "Qz/Utf8.h"

// TempFolder: an empty folder of its own on the real file system, gone with all it holds at the end.
class TempFolder
{
public:
    TempFolder() : path_((std::filesystem::temp_directory_path() / "support-XXXXXX").string())
    {
        if (!::mkdtemp(path_.data()))
            throw std::runtime_error("no temporary folder");
    }
    ~TempFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    [[nodiscard]] std::string path(const std::string& name = {}) const
    {
        return name.empty() ? path_ : path_ + '/' + name;
    }
    [[nodiscard]] LightweightString<wchar_t> wide(const std::string& name = {}) const
    {
        return fromUTF8(path(name).c_str());
    }
    // Makes the folders above it too.
    void write(const std::string& name, const std::string& contents) const
    {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        std::ofstream(path(name), std::ios::binary | std::ios::trunc) << contents;
    }
    // "(missing)" for a file that is not there.
    [[nodiscard]] std::string read(const std::string& name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        if (!file)
            return "(missing)";
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

private:
    std::string path_;
};
