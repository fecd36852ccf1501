#ifndef OSTREL_LAB_PLAYER_SCENARIO_SCENARIO_READER_H
#define OSTREL_LAB_PLAYER_SCENARIO_SCENARIO_READER_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "scenario.h"

namespace ostrel::lab {

// Events with this offset become due about three seconds after the player's "now".
constexpr std::int64_t DEFAULT_TIME_OFFSET = -57000;

struct ScenarioResult {
  std::optional<Scenario> scenario;  // set exactly when `errors` is empty
  std::vector<std::string> errors;   // each one line: file, line, place, what is wrong
};

// Reads any bytes whatever; nothing escapes but the result. `fileName` only appears in the errors.
ScenarioResult ReadScenario(std::string_view fileName, std::string_view text) noexcept;

}  // namespace ostrel::lab

#endif
