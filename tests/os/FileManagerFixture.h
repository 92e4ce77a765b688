#pragma once

#include "common/TemporaryFolder.h"
#include "os/linux/LinuxFileManager.h"

#include <gtest/gtest.h>

// A file manager of its own, a folder to work in, and short words for both.
class FileManagerFixture : public testing::Test
{
protected:
    using Items = std::vector<iFileManager::DirectoryItem>;

    [[nodiscard]] LightweightString<wchar_t> at(const std::string& name) const { return wide(folder / name); }

    static std::vector<std::string> namesOf(const Items& items)
    {
        std::vector<std::string> names;
        for (const auto& item : items)
            names.push_back(toUTF8(item.name).str());
        return names;
    }

    static constexpr unsigned limitMs = 100;

    TemporaryFolder folder;
    os::MountTableReader mounts{"/proc/self/mountinfo"};
    os::BoundedCalls calls{limitMs};
    os::LinuxFileManager files{mounts, calls};
};
