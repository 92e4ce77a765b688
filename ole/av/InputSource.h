#pragma once

#include "Qz/Ptr.h"
#include "av/AvInput.h"
#include "av/IoContext.h"
#include "media/MediaReader.h"
#include "os/iThreadEvent.h"

#include <memory>
#include <optional>

// AvInput::Source: what libavformat's calls for a file come to.
class AvInput::Source
{
public:
    Source(std::unique_ptr<MediaReader> reader, const AvInputOptions& options);
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    [[nodiscard]] const MediaError& error() const { return error_; }
    [[nodiscard]] AVIOContext* context() const { return context_.get(); }
    [[nodiscard]] const std::string& name() const { return name_; }
    void stop() { stopped_->set(); }

private:
    static int readPacket(void* source, std::uint8_t* into, int bytes);
    static std::int64_t seekTo(void* source, std::int64_t offset, int whence);

    int read(std::span<std::byte> into);
    std::int64_t seek(std::int64_t offset, int whence);
    // The file's size, or an AVERROR code.
    std::int64_t size();
    int fail(const MediaError& error);
    // True when the file is worth another read at the position.
    bool awaitGrowth();
    [[nodiscard]] bool hasMore() const { return reader_->size() > position_; }
    // A recording under its unfinished name.
    [[nodiscard]] bool isRecording() const;
    [[nodiscard]] bool hasLostItsName() const;
    // Goes over to the file under its final name; false when there is none.
    bool followToFinalName();
    void prepare();

    const AvInputOptions options_;
    std::unique_ptr<MediaReader> reader_;  // never null
    std::string name_;
    Qz::Ptr<iThreadEvent> stopped_;
    MediaError error_;
    std::uint64_t position_ = 0;
    std::optional<std::uint64_t> restingSize_;  // at which nothing came for as long as one waits
    IoContext context_;
};
