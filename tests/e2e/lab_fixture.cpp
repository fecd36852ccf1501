#include "e2e/lab_fixture.h"

#include <algorithm>
#include <iostream>
#include <sstream>

namespace ostrel::test {

namespace {

constexpr std::size_t HOST_ERRORS_SHOWN = 4000;

std::wstring Quoted(const std::filesystem::path& path) {
  return L"\"" + path.wstring() + L"\"";
}

}  // namespace

LabFixture::LabFixture() {
  const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
  directory_ = std::filesystem::temp_directory_path() / "ostrel-e2e" /
               (std::string(test->test_suite_name()) + "." + test->name());
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
  std::filesystem::create_directories(directory_);
}

void LabFixture::TearDown() {
  if (!HasFailure()) return;
  const std::string errors = ReadFile(directory_ / "host.err");
  if (errors.empty()) return;
  const std::size_t shown = std::min(errors.size(), HOST_ERRORS_SHOWN);
  std::cout << "The host's last lines:\n" << errors.substr(errors.size() - shown) << "\n";
}

std::filesystem::path LabFixture::StageDirectory() {
  wchar_t path[1024] = {};
  GetModuleFileNameW(nullptr, path, 1024);
  return std::filesystem::path(path).parent_path();
}

std::filesystem::path LabFixture::Scenario(const std::string& name) {
  return StageDirectory() / "e2e" / name;
}

std::unique_ptr<Program> LabFixture::StartProgram(const std::wstring& name, const std::wstring& arguments) {
  return std::make_unique<Program>(Quoted(StageDirectory() / name) + L" " + arguments, directory_ / "host");
}

std::unique_ptr<Program> LabFixture::StartHost(const std::wstring& arguments) {
  return StartProgram(L"OstrelHost.exe", arguments);
}

DWORD LabFixture::RunLab(const std::wstring& arguments) {
  ++labRuns_;
  Program lab(Quoted(StageDirectory() / "OstrelLab.exe") + L" " + arguments,
              directory_ / ("lab" + std::to_string(labRuns_)));
  const std::optional<DWORD> exitCode = lab.Wait(PROGRAM_PATIENCE);
  EXPECT_TRUE(exitCode.has_value()) << "the lab did not end";
  if (exitCode != 0U) ADD_FAILURE() << lab.Output() << lab.Errors();
  return exitCode.value_or(99);
}

DWORD LabFixture::Play(const std::filesystem::path& scenario) {
  return RunLab(L"play " + Quoted(scenario) + L" --wait-host 90 --work-dir " + Quoted(directory_ / "work"));
}

DWORD LabFixture::Check(const std::filesystem::path& scenario) {
  return RunLab(L"check " + Quoted(scenario) + L" " + Quoted(directory_ / "host.out") + L" --work-dir " +
                Quoted(directory_ / "work") + L" --wait 30");
}

std::string LabFixture::LabOutput() const {
  return ReadFile(directory_ / ("lab" + std::to_string(labRuns_) + ".out"));
}

nlohmann::json LabFixture::LabStatus() {
  RunLab(L"status");
  return nlohmann::json::parse(LabOutput());
}

std::vector<nlohmann::json> LabFixture::Detections() const {
  std::istringstream lines(ReadFile(directory_ / "host.out"));
  std::vector<nlohmann::json> detections;
  for (std::string line; std::getline(lines, line);) detections.push_back(nlohmann::json::parse(line));
  return detections;
}

std::filesystem::path LabFixture::WorkFile(const std::string& scenarioPath) const {
  return directory_ / "work" / "files" / scenarioPath;
}

}  // namespace ostrel::test
