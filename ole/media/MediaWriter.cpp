#include "media/MediaWriter.h"

#include "media/Recording.h"

#include <utility>

MediaWriter::MediaWriter(const LightweightString<wchar_t>& path, MediaWriterOptions options)
    : recording_(std::make_unique<Recording>(path, std::nullopt, options))
{
    recording_->begin();
}

MediaWriter::MediaWriter(const Cookie& cookie, const MaterialFilename& name, MediaWriterOptions options)
    : recording_(std::make_unique<Recording>(name.getOsPath(), Recording::Clip{cookie, name}, options))
{
    recording_->begin();
}

MediaWriter::~MediaWriter() { recording_->end(false); }

bool MediaWriter::isOpen() const { return recording_->isOpen(); }

MediaError MediaWriter::error() const { return recording_->error(); }

const LightweightString<wchar_t>& MediaWriter::path() const { return recording_->path(); }

const LightweightString<wchar_t>& MediaWriter::partialPath() const { return recording_->partialPath(); }

bool MediaWriter::write(std::span<const std::byte> data) { return recording_->write(data); }

bool MediaWriter::rewrite(std::uint64_t offset, std::span<const std::byte> data)
{
    return recording_->rewrite(offset, data);
}

bool MediaWriter::flush() { return recording_->flush(); }

MediaRecording MediaWriter::finish() { return recording_->end(true); }

void MediaWriter::abandon() { recording_->abandon(); }

MediaWriter::Counters MediaWriter::counters() const { return recording_->counters(); }
