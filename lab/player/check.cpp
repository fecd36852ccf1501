#include "check.h"

#include <algorithm>
#include <cstdio>

#include "detections.h"
#include "text.h"

namespace ostrel::lab {

namespace {

constexpr DWORD POLL_MS = 100;

std::vector<ComparisonRow> CompareWithFile(const Scenario& scenario, const WorkDirectory& workDirectory,
                                           const std::wstring& path) {
  const DetectionsResult read = ReadDetections(ToUtf8(path), ReadWholeFile(path));
  if (!read.errors.empty()) throw LabError(read.errors.front());
  return Compare(scenario, ToUtf8(workDirectory.Root()), read.detections);
}

bool IsAgreed(const std::vector<ComparisonRow>& rows) {
  return std::all_of(rows.begin(), rows.end(),
                     [](const ComparisonRow& row) { return row.verdict == Verdict::Ok; });
}

bool IsSomethingMissing(const std::vector<ComparisonRow>& rows) {
  return std::any_of(rows.begin(), rows.end(),
                     [](const ComparisonRow& row) { return row.verdict == Verdict::Missing; });
}

const char* WordOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::Ok:
      return "ok";
    case Verdict::Missing:
      return "MISSING";
    case Verdict::Unexpected:
      return "UNEXPECTED";
  }
  return "";
}

void PrintTable(const std::vector<ComparisonRow>& rows) {
  // One very long name must not push every other verdict out of sight.
  constexpr std::size_t WIDEST = 90;
  std::size_t expectedWidth = 8;
  std::size_t reportedWidth = 8;
  for (const ComparisonRow& row : rows) {
    expectedWidth = std::max(expectedWidth, row.expected.size());
    reportedWidth = std::max(reportedWidth, row.reported.size());
  }
  expectedWidth = std::min(expectedWidth, WIDEST);
  reportedWidth = std::min(reportedWidth, WIDEST);
  const auto print = [&](const char* expected, const char* reported, const char* verdict) {
    std::printf("%-*s  %-*s  %s\n", static_cast<int>(expectedWidth), expected,
                static_cast<int>(reportedWidth), reported, verdict);
  };
  print("EXPECTED", "REPORTED", "");
  for (const ComparisonRow& row : rows)
    print(row.expected.c_str(), row.reported.c_str(), WordOf(row.verdict));
}

}  // namespace

bool CheckDetections(const Scenario& scenario, const WorkDirectory& workDirectory,
                     const std::wstring& detectionsPath, std::uint32_t waitSeconds) {
  const ULONGLONG deadline = GetTickCount64() + std::uint64_t{waitSeconds} * 1000;
  std::vector<ComparisonRow> rows = CompareWithFile(scenario, workDirectory, detectionsPath);
  while (IsSomethingMissing(rows) && GetTickCount64() < deadline) {
    Sleep(POLL_MS);
    rows = CompareWithFile(scenario, workDirectory, detectionsPath);
  }
  PrintTable(rows);
  return IsAgreed(rows);
}

}  // namespace ostrel::lab
