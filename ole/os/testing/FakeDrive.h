#pragma once

#include "os/iDiskDrive.h"

#include <mutex>

namespace fake {

// Properties of a drive; a test sets what it needs.
struct DriveProperties
{
    iDiskDrive::eType type = iDiskDrive::eLocal;
    std::uint32_t sectorSize = 512;  // 0: not known
    std::uint64_t freeBytes = 100ULL << 30;
    std::uint64_t totalBytes = 200ULL << 30;
    bool isSystemDisk = false;
    bool isMounted = true;
    LightweightString<wchar_t> root{};  // given as it is; real platforms end it with the separator
};

// How often each query was asked.
struct DriveQueries
{
    unsigned type = 0;
    unsigned sectorSize = 0;
    unsigned freeBytes = 0;
    unsigned totalBytes = 0;
    unsigned isSystemDisk = 0;
    unsigned isMounted = 0;
    unsigned root = 0;
};

}  // namespace fake

// FakeDrive: a drive with the properties that the test gives it.
//
// Threads: any; properties may change at any time.
class FakeDrive : public iDiskDrive
{
public:
    explicit FakeDrive(const fake::DriveProperties& properties) : properties_(properties) {}

    eType getType() const override;
    std::uint32_t getSectorSize() const override;
    std::uint64_t getFreeBytes() const override;
    std::uint64_t getTotalBytes() const override;
    bool isSystemDisk() const override;
    bool isMounted() const override;
    LightweightString<wchar_t> getRootPath() const override;

    void set(const fake::DriveProperties& properties);
    [[nodiscard]] fake::DriveProperties properties() const;
    [[nodiscard]] fake::DriveQueries queries() const;

private:
    mutable std::mutex mutex_;
    fake::DriveProperties properties_;
    mutable fake::DriveQueries queries_;
};
