#pragma once

#include "Command.h"
#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "fsys/DecodeFormat.h"
#include "fsys/DriveId.h"

#include <cstdint>
#include <optional>
#include <string>

// Session: the libraries at work for one run of the command: engine, registry, media cache. The index is
// filled from the project space's media locations when the session starts; everything ends with it.
class Session
{
public:
    // Makes the project space on first use. failed() tells when that was not possible.
    explicit Session(const Options& options);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // False, after a message, when what is registered now would be forgotten.
    [[nodiscard]] bool canPersist() const;
    [[nodiscard]] bool failed() const { return failed_; }

private:
    std::string space_;
    bool failed_ = false;
};

// The project space that options name, or the default one; empty when neither it nor a home folder is known.
[[nodiscard]] std::string projectSpaceOf(const Options& options);

// Registered location by its id ("1") or path; none when it is not registered.
[[nodiscard]] std::optional<DriveId> findLocation(const std::string& idOrPath);

// Cookie written on the command line: the complete form, or the short one for the clip's picture.
[[nodiscard]] Cookie cookieOf(const std::string& text);

// "high", "proxy" or "auto", with a picture height for "auto".
[[nodiscard]] DecodeFormat formatOf(const std::string& level, unsigned height);

// The file whose bytes are read for path: the target when path is a link file.
[[nodiscard]] LightweightString<wchar_t> targetOf(const LightweightString<wchar_t>& path);

// What to read for a cookie or a path on the command line.
struct Source
{
    ExitStatus status = exitDone;     // exitNo, after a message, when there is nothing to read
    LightweightString<wchar_t> path;  // to open
    std::uint64_t size = 0;           // bytes of the target
};
[[nodiscard]] Source sourceOf(const std::string& cookieOrPath, const DecodeFormat& format);
