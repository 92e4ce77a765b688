#pragma once

#include "Qz/LightweightString.h"
#include "Qz/Utf8.h"

#include <nlohmann/json.hpp>

#include <cstdarg>
#include <cstdio>
#include <string>

// Answer: what the command tells, on the terminal or to a script.
//
// Standard output carries the answer and nothing else: the libraries print diagnostics there, so the real
// one is put aside first and theirs is sent away (to standard error with --verbose).
// JSON: one object per line, keys in the order in which they were set.

using Json = nlohmann::ordered_json;

// Gives standard streams that the caller has closed a place, so that no media file gets their numbers.
void holdStandardStreams();
void takeStandardOutput(bool showLibraryOutput);
// False when a part of the answer did not reach its reader.
[[nodiscard]] bool answerArrived();
// One JSON object as one line, without its line break. Bytes of names that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string jsonLine(const Json& object);
// Writes that line.
void answerJson(const Json& object);
// Descriptor of the answer where that is a terminal that can be drawn on; -1 elsewhere.
[[nodiscard]] int answerTerminal();
// Writes text as printf does. On a terminal control characters, which names may hold, become question marks.
void answer(const char* format, ...) __attribute__((format(printf, 1, 2)));
// "fsys: " and a message on standard error, in the same way.
void complain(const char* format, ...) __attribute__((format(printf, 1, 2)));

[[nodiscard]] inline std::string utf8(const LightweightString<wchar_t>& text) { return toUTF8(text).str(); }
[[nodiscard]] inline LightweightString<wchar_t> wide(const std::string& text)
{
    return fromUTF8(std::string_view(text));
}
// "12.3 MB"
[[nodiscard]] std::string readableBytes(double bytes);
