#pragma once

// QzResult: result codes of operations that answer with a number.
namespace QzResult {

constexpr int OK = 1;           // done
constexpr int NoSuchDrive = 5;  // no registered drive has that id

}  // namespace QzResult
