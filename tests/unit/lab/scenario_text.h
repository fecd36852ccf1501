#ifndef OSTREL_TESTS_UNIT_LAB_SCENARIO_TEXT_H
#define OSTREL_TESTS_UNIT_LAB_SCENARIO_TEXT_H

#include <string>
#include <string_view>
#include <vector>

#include "scenario.h"

namespace ostrel_test {

// The members of a scenario file without their brackets. A test replaces the ones that it is about.
struct ScenarioText {
  std::string processes = R"("chrome": {"image": "chrome.exe"}, "pscp": {"image": "pscp.exe"})";
  std::string files =
      R"("empty": {"path": "empty.txt"}, "report": {"path": "team/report.pdf", "size": 3000},
         "folder": {"path": "holiday", "directory": true},
         "share": {"deviceName": "\\Device\\Mup\\s\\x\\a.txt", "reportedName": "\\\\s\\x\\a.txt"},
         "nameless": {"deviceName": "\\Device\\Mup"})";
  std::string steps;
  std::string expect;

  // One line, so that every error is in line 1.
  std::string Text() const;
};

// Reads a text that must be right; a wrong one fails the test with its errors.
ostrel::lab::Scenario ReadValid(std::string_view text);

// Reads a text that must be wrong, under the name s.json. An empty list means that it was accepted.
std::vector<std::string> ErrorsOf(std::string_view text);

// Both for a scenario with these steps or this expectation and with the usual processes and files.
std::vector<std::string> StepErrors(const std::string& steps);
std::vector<std::string> ExpectationErrors(const std::string& expectations);

using Lines = std::vector<std::string>;

}  // namespace ostrel_test

#endif
