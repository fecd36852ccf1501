#include "scenario_text.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "scenario_reader.h"

namespace ostrel_test {

std::string ScenarioText::Text() const {
  std::string text = "{\"processes\": {" + processes + "}, \"files\": {" + files + "}, \"steps\": [" + steps +
                     "], \"expect\": [" + expect + "]}";
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

ostrel::lab::Scenario ReadValid(std::string_view text) {
  ostrel::lab::ScenarioResult result = ostrel::lab::ReadScenario("s.json", text);
  EXPECT_EQ(result.errors, Lines{});
  EXPECT_TRUE(result.scenario.has_value());
  return std::move(result.scenario).value_or(ostrel::lab::Scenario{});
}

std::vector<std::string> ErrorsOf(std::string_view text) {
  const ostrel::lab::ScenarioResult result = ostrel::lab::ReadScenario("s.json", text);
  EXPECT_EQ(result.scenario.has_value(), result.errors.empty());
  return result.errors;
}

std::vector<std::string> StepErrors(const std::string& steps) {
  ScenarioText text;
  text.steps = steps;
  return ErrorsOf(text.Text());
}

std::vector<std::string> ExpectationErrors(const std::string& expectations) {
  ScenarioText text;
  text.expect = expectations;
  return ErrorsOf(text.Text());
}

}  // namespace ostrel_test
