#pragma once

#include "Qz/Utf8.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include <stdlib.h>

// TemporaryFolder: a folder of its own for one test, gone with all it holds at the end.
class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string pattern = std::filesystem::temp_directory_path() / "fsys-test-XXXXXX";
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("no temporary folder");
        path_ = std::filesystem::canonical(pattern).string();
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + '/' + name; }

    std::string file(const std::string& name, const std::string& contents = {}) const
    {
        std::ofstream(*this / name, std::ios::binary) << contents;
        return *this / name;
    }
    std::string folder(const std::string& name) const
    {
        std::filesystem::create_directories(*this / name);
        return *this / name;
    }

private:
    std::string path_;
};

inline std::string contentsOf(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

inline LightweightString<wchar_t> wide(const std::string& bytes) { return fromUTF8(bytes.c_str()); }
