#pragma once

#include "Qz/Notifier.h"
#include "fsys/DiskManager.h"
#include "fsys/MediaDrive.h"
#include "fsys/SystemCache.h"
#include "os/testing/FakeOS.h"
#include "support/Log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// What Log and LogBoth were given.
class RegistryLog : public iLogSink
{
public:
    RegistryLog() : before_(setLogSink(this)) {}
    ~RegistryLog() override { setLogSink(before_); }
    RegistryLog(const RegistryLog&) = delete;
    RegistryLog& operator=(const RegistryLog&) = delete;

    void log(const char* text) override { logged += text; }
    void logBoth(const char* text) override { both += text; }
    void splat(const char*, int) override {}
    void debugText(int, int, const char*) override {}

    std::string logged;
    std::string both;

private:
    iLogSink* before_;
};

// Hears the messages of the registry while it lives.
class RegistryListener
{
public:
    explicit RegistryListener(std::function<void(const NotifyMsg&)> also = {})
        : also_(std::move(also)),
          handle_(DiskManager::addListener(new FunctionCallback<int, NotifyMsg>(
              [this](const NotifyMsg& message) { return hear(message); })))
    {}

    [[nodiscard]] unsigned count(const std::string& text) const
    {
        return static_cast<unsigned>(std::count(texts.begin(), texts.end(), text));
    }

    std::vector<std::string> texts;
    std::vector<bool> payloads;
    std::vector<std::thread::id> threads;

private:
    int hear(const NotifyMsg& message)
    {
        texts.push_back(message.getText().str());
        payloads.push_back(static_cast<bool>(message.getPayload()));
        threads.push_back(std::this_thread::get_id());
        if (also_)
            also_(message);
        return 0;
    }

    std::function<void(const NotifyMsg&)> also_;
    Qz::Ptr<iObject> handle_;
};

// What body writes to standard output.
inline std::string printedBy(const std::function<void()>& body)
{
    testing::internal::CaptureStdout();
    body();
    return testing::internal::GetCapturedStdout();
}

// Runs body in a process that has run nothing before, for what happens once per process.
inline void inFreshProcess(const std::function<void()>& body)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            body();
            std::_Exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

// An empty registry on a fake platform; the first drive that is registered gets id '1'.
class RegistryFixture : public testing::Test
{
protected:
    static constexpr std::uint64_t MB = 1ULL << 20;

    RegistryFixture()
    {
        os.files().addFolder(L"/project");
        SystemCache::invalidate();
        DiskManager::init(L"/project", true);
        os.log().clear();
        log.logged.clear();
        log.both.clear();
    }
    ~RegistryFixture() override
    {
        DiskManager::deInit();
        SystemCache::invalidate();
    }

    // A disk of the machine, not registered; root with its trailing separator.
    Qz::Ptr<FakeDrive> addDisk(const wchar_t* root, std::uint64_t freeBytes = 1000 * MB,
                               iDiskDrive::eType type = iDiskDrive::eLocal)
    {
        fake::DriveProperties properties;
        properties.type = type;
        properties.freeBytes = freeBytes;
        properties.totalBytes = 2 * freeBytes;
        properties.root = root;
        return os.files().addDrive(properties);
    }

    // A registered place on a disk of its own.
    DriveId addPlace(const wchar_t* root, std::uint64_t freeBytes = 1000 * MB,
                     iDiskDrive::eType type = iDiskDrive::eLocal)
    {
        addDisk(root, freeBytes, type);
        DriveId id;
        EXPECT_TRUE(DiskManager::addMaterialVolume(root, id, false));
        return id;
    }

    // Registers count folders of the file system, without disks: /d1, /d2, ...
    void addFolders(unsigned count)
    {
        for (unsigned i = 1; i <= count; ++i) {
            const std::wstring path = L"/d" + std::to_wstring(i);
            os.files().addFolder(path);
            DriveId id;
            ASSERT_TRUE(DiskManager::addMaterialVolume(path, id, false));
        }
    }

    FakeOS os;
    ScopedOS installed{os};
    RegistryLog log;
};
