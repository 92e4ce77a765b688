#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Qz/LightweightString.h"

// SmallFile: how the small text files of the system are read.
//
// Threads:    any.
// Errors:     a missing file is none; contents is empty unless a file was loaded.

enum class LoadResult { loaded, missing, unreadable };
// Reads a file of at most 16 MiB through the file manager.
[[nodiscard]] LoadResult loadSmallFile(const LightweightString<wchar_t>& path, std::string& contents);

// The lines of a text without their line breaks (LF or CR LF) and without a byte order mark at the start;
// a line break at the end makes no further line. A text of nothing but zero bytes has no lines. They point
// into the text.
[[nodiscard]] std::vector<std::string_view> splitLines(std::string_view text);
