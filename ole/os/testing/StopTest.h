#pragma once

namespace fake {

// Prints why and aborts: for what can only be a mistake in a test or in the code under test, and would
// otherwise hang or go on wrongly.
[[noreturn]] void stopTest(const char* why);

}  // namespace fake
