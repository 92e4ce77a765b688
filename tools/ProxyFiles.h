#pragma once

#include "ClipFiles.h"

#include <optional>
#include <string>

// ProxyFiles: one proxy among those of a clip, and the names that it may have.

// The proxy that text names: its file name, or its path. None, after a message.
[[nodiscard]] std::optional<TestedFile> findProxy(const Cookie& cookie, const std::string& text);

// Empty when a scan finds a file of that name as a proxy of cookie; otherwise what is wrong with it.
[[nodiscard]] std::string whyNoProxyName(const Cookie& cookie, const std::string& name);

// The cookie under which a scan files a name; invalid for a name that is none of media.
[[nodiscard]] Cookie cookieOfName(const LightweightString<wchar_t>& fileName);
