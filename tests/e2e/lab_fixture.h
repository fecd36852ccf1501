#ifndef OSTREL_TESTS_E2E_LAB_FIXTURE_H
#define OSTREL_TESTS_E2E_LAB_FIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "e2e/program.h"

namespace ostrel::test {

// Long enough for a loaded machine; a test that waits that long has failed.
constexpr std::chrono::seconds PROGRAM_PATIENCE{120};

// Runs host and lab from the stage folder, with a working folder per test.
class LabFixture : public ::testing::Test {
 protected:
  LabFixture();

  // Of a test that failed, what the host said at its end.
  void TearDown() override;

  static std::filesystem::path StageDirectory();
  static std::filesystem::path Scenario(const std::string& name);

  // A program of the stage folder.
  std::unique_ptr<Program> StartProgram(const std::wstring& name, const std::wstring& arguments);
  std::unique_ptr<Program> StartHost(const std::wstring& arguments);
  // Runs OstrelLab.exe to its end and returns its exit code.
  DWORD RunLab(const std::wstring& arguments);
  DWORD Play(const std::filesystem::path& scenario);
  // Waits until everything that is expected has been reported, and compares.
  DWORD Check(const std::filesystem::path& scenario);

  // Only when RunLab's last program has ended.
  std::string LabOutput() const;
  nlohmann::json LabStatus();

  // What the host has printed so far.
  std::vector<nlohmann::json> Detections() const;

  std::filesystem::path WorkFile(const std::string& scenarioPath) const;

 private:
  std::filesystem::path directory_;
  int labRuns_ = 0;
};

}  // namespace ostrel::test

#endif
