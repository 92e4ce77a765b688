#pragma once

#include "Sweep.h"

// The scenarios, by what they are about.
[[nodiscard]] std::vector<Scenario> recordingScenarios();
[[nodiscard]] std::vector<Scenario> playingScenarios();
[[nodiscard]] std::vector<Scenario> engineScenarios();
[[nodiscard]] std::vector<Scenario> locationScenarios();
