#include "Recorder.h"

#include "Buffers.h"
#include "Clips.h"
#include "Gil.h"
#include "Raised.h"
#include "Texts.h"
#include "fsys/DiskManager.h"
#include "fsys/MediaFileInfo.h"

#include <pybind11/stl.h>

namespace py = pybind11;

namespace {

MaterialFilename nameOf(const Cookie& cookie, DriveId location, const LightweightString<wchar_t>& extension,
                        const std::optional<unsigned>& proxyHeight, unsigned char proxyChannels)
{
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(location);
    if (!drive)
        throw Raised("unknownLocation", "no such location is registered");
    if (!drive->prepareForMedia())
        throw Raised(MediaError{MediaErrorCode::writeFailed, 0,
                                "the location has no media folders, and none can be made"});
    const MaterialFilename plain = drive->getFsysLocation(cookie, extension);
    if (!proxyHeight)
        return plain;
    return {location, MediaFileInfo::makeProxyName(plain.getPath(), extension, *proxyHeight, proxyChannels)};
}

}  // namespace

MediaWriterOptions Recorder::optionsOf(const py::dict& given)
{
    MediaWriterOptions options;
    options.hash = given["hash"].cast<bool>();
    options.bytesInFlight = given["bytes_in_flight"].cast<std::uint64_t>();
    options.lowSpaceBytes = given["low_space_bytes"].cast<std::uint64_t>();
    options.stallLimitMs = given["stall_limit_ms"].cast<unsigned>();
    options.onSpaceLow = [this](std::uint64_t freeBytes) { spaceLow_ = freeBytes; };
    return options;
}

template <class Make>
void Recorder::begin(Make make)
{
    auto open = std::make_unique<Open>();
    make(open->writer);
    if (!open->writer->isOpen())
        throw Raised(open->writer->error());
    path_ = open->writer->path();
    partialPath_ = open->writer->partialPath();
    open_ = std::move(open);
}

std::unique_ptr<Recorder> Recorder::ofClip(const py::str& cookie, const py::str& location,
                                           const py::str& extension, const py::object& proxyHeight,
                                           unsigned proxyChannels, const py::dict& options)
{
    std::unique_ptr<Recorder> recorder(new Recorder);
    const Cookie clip = clips::cookieOf(cookie);
    const DriveId place = texts::toLocation(location);
    const LightweightString<wchar_t> ending = texts::toWide(extension);
    const auto height = proxyHeight.cast<std::optional<unsigned>>();
    const MediaWriterOptions how = recorder->optionsOf(options);
    gil::without([&] {
        recorder->begin([&](std::optional<MediaWriter>& writer) {
            writer.emplace(
                clip, nameOf(clip, place, ending, height, static_cast<unsigned char>(proxyChannels)), how);
        });
    });
    return recorder;
}

std::unique_ptr<Recorder> Recorder::ofFile(const py::str& path, const py::dict& options)
{
    std::unique_ptr<Recorder> recorder(new Recorder);
    const LightweightString<wchar_t> file = texts::toWide(path);
    const MediaWriterOptions how = recorder->optionsOf(options);
    gil::without(
        [&] { recorder->begin([&](std::optional<MediaWriter>& writer) { writer.emplace(file, how); }); });
    return recorder;
}

Recorder::~Recorder() { leave(); }

py::str Recorder::path() const { return texts::toPython(path_); }
py::str Recorder::partialPath() const { return texts::toPython(partialPath_); }

bool Recorder::isOpen() const
{
    if (engine::isLost())
        return false;
    return gil::without([&] {
        const std::lock_guard hold(guard_);
        return open_ != nullptr;
    });
}

MediaWriter& Recorder::writer() const
{
    if (!open_)
        throw Raised(MediaError{MediaErrorCode::notOpen, 0, "the recording has ended"});
    return *open_->writer;
}

// The writer goes with its Use; its counters stay.
void Recorder::end()
{
    counters_ = open_->writer->counters();
    open_.reset();
}

void Recorder::write(const py::object& data)
{
    const Buffer buffer(data, Buffer::For::reading);
    gil::without([&] {
        engine::refuseAfterFork();
        const std::lock_guard hold(guard_);
        if (!writer().write(buffer.bytes()))
            throw Raised(writer().error());
    });
}

void Recorder::flush()
{
    gil::without([&] {
        engine::refuseAfterFork();
        const std::lock_guard hold(guard_);
        if (!writer().flush())
            throw Raised(writer().error());
    });
}

py::dict Recorder::finish()
{
    const MediaRecording recorded = gil::without([&] {
        engine::refuseAfterFork();
        const std::lock_guard hold(guard_);
        if (!recorded_) {
            recorded_ = writer().finish();
            end();
        }
        return *recorded_;
    });
    py::dict told;
    told["complete"] = recorded.complete;
    told["path"] = recorded.path.empty() ? py::object(py::none()) : texts::toPython(recorded.path);
    told["has_final_name"] = recorded.hasFinalName;
    told["bytes"] = recorded.bytes;
    told["hash"] = recorded.hash.empty() ? py::object(py::none()) : py::str(recorded.hash);
    told["mistaken_for_link"] = recorded.mistakenForLink;
    told["error"] = recorded.error ? Raised(recorded.error).object() : py::none();
    return told;
}

void Recorder::abandon()
{
    if (engine::isLost())
        return;
    gil::without([&] {
        const std::lock_guard hold(guard_);
        if (!open_)
            return;
        writer().abandon();
        end();
    });
}

void Recorder::leave()
{
    // A child that was forked off must not cut its parent's file.
    if (engine::isLost()) {
        static_cast<void>(open_.release());
        return;
    }
    gil::without([&] {
        const std::lock_guard hold(guard_);
        if (open_)
            end();
    });
}

py::dict Recorder::counters() const
{
    const MediaWriter::Counters now = gil::without([&] {
        engine::refuseAfterFork();
        const std::lock_guard hold(guard_);
        return open_ ? open_->writer->counters() : counters_;
    });
    py::dict counters;
    counters["writes"] = now.writes;
    counters["bytes"] = now.bytes;
    counters["bytes_on_disk"] = now.bytesOnDisk;
    counters["waits"] = now.waits;
    counters["worst_wait_ms"] = now.worstWaitMs;
    return counters;
}

py::object Recorder::takeSpaceLow()
{
    const std::uint64_t freeBytes = spaceLow_.exchange(spaceIsFine);
    if (freeBytes == spaceIsFine)
        return py::none();
    return py::int_(freeBytes);
}
