#include "av/AvOutput.h"

#include "av/OutputSink.h"

#include <utility>

AvOutput::AvOutput(const LightweightString<wchar_t>& path, MediaWriterOptions options, int bufferBytes)
    : sink_(std::make_unique<Sink>(std::make_unique<MediaWriter>(path, std::move(options)), bufferBytes))
{}

AvOutput::AvOutput(const Cookie& cookie, const MaterialFilename& name, MediaWriterOptions options,
                   int bufferBytes)
    : sink_(std::make_unique<Sink>(std::make_unique<MediaWriter>(cookie, name, std::move(options)),
                                   bufferBytes))
{}

AvOutput::~AvOutput() = default;

bool AvOutput::isOpen() const { return sink_->context() != nullptr; }

MediaError AvOutput::error() const { return sink_->error(); }

AVIOContext* AvOutput::context() const { return sink_->context(); }

const MediaWriter& AvOutput::writer() const { return sink_->writer(); }

MediaRecording AvOutput::finish() { return sink_->finish(); }

void AvOutput::abandon() { sink_->abandon(); }
