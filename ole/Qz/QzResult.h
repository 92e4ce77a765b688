#pragma once

// QzResult: result codes of operations that answer with a number.
namespace QzResult {

constexpr int OK = 1;
constexpr int NoSuchDrive = 5;

}  // namespace QzResult
