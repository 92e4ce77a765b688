#include "av/AvInput.h"

#include "av/InputSource.h"

AvInput::AvInput(const LightweightString<wchar_t>& path, const AvInputOptions& options)
    : source_(std::make_unique<Source>(std::make_unique<MediaReader>(path), options))
{}

AvInput::AvInput(const Cookie& cookie, const DecodeFormat& format, const AvInputOptions& options)
    : source_(std::make_unique<Source>(std::make_unique<MediaReader>(cookie, format), options))
{}

AvInput::~AvInput() = default;

bool AvInput::isOpen() const { return source_->context() != nullptr; }

const MediaError& AvInput::error() const { return source_->error(); }

AVIOContext* AvInput::context() const { return source_->context(); }

const std::string& AvInput::name() const { return source_->name(); }

void AvInput::stop() { source_->stop(); }
