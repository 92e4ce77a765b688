#include "os/testing/FakeDrive.h"

namespace {
using Guard = std::lock_guard<std::mutex>;
}

iDiskDrive::eType FakeDrive::getType() const
{
    const Guard guard(mutex_);
    ++queries_.type;
    return properties_.type;
}

std::uint32_t FakeDrive::getSectorSize() const
{
    const Guard guard(mutex_);
    ++queries_.sectorSize;
    return properties_.sectorSize;
}

std::uint64_t FakeDrive::getFreeBytes() const
{
    const Guard guard(mutex_);
    ++queries_.freeBytes;
    return properties_.freeBytes;
}

std::uint64_t FakeDrive::getTotalBytes() const
{
    const Guard guard(mutex_);
    ++queries_.totalBytes;
    return properties_.totalBytes;
}

bool FakeDrive::isSystemDisk() const
{
    const Guard guard(mutex_);
    ++queries_.isSystemDisk;
    return properties_.isSystemDisk;
}

bool FakeDrive::isMounted() const
{
    const Guard guard(mutex_);
    ++queries_.isMounted;
    return properties_.isMounted;
}

LightweightString<wchar_t> FakeDrive::getRootPath() const
{
    const Guard guard(mutex_);
    ++queries_.root;
    return properties_.root;
}

void FakeDrive::set(const fake::DriveProperties& properties)
{
    const Guard guard(mutex_);
    properties_ = properties;
}

fake::DriveProperties FakeDrive::properties() const
{
    const Guard guard(mutex_);
    return properties_;
}

fake::DriveQueries FakeDrive::queries() const
{
    const Guard guard(mutex_);
    return queries_;
}
