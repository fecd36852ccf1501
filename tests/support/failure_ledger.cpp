#include "support/failure_ledger.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <tuple>
#include <utility>

#include "support/transcript.h"

namespace ostrel::test {

namespace {

constexpr char VARIABLE[] = "OSTREL_FAILURE_LEDGER";
constexpr std::string_view LOG_START = "log ";
constexpr DWORD LARGEST_PLAIN_CODE = 0xFFFF;
constexpr std::size_t LONGEST_TEXT = 180;
constexpr std::size_t MOST_TESTS = 3;

// Levels of log lines.
constexpr int ERROR_LEVEL = 3;
constexpr int NOTABLE_LEVEL = 6;

constexpr std::array RELEASING_CALLS = {
    std::string_view("CloseHandle"),       std::string_view("CloseServiceHandle"),
    std::string_view("CoUninitialize"),    std::string_view("DestroyEnvironmentBlock"),
    std::string_view("FwpmEngineClose0"),  std::string_view("FwpmTransactionAbort0"),
    std::string_view("HeapFree"),          std::string_view("LocalFree"),
    std::string_view("SetupCloseInfFile"), std::string_view("VariantClear"),
    std::string_view("WTSFreeMemory"),     std::string_view("locator.Release"),
    std::string_view("services.Release"),  std::string_view("enumerator.Release"),
};

// Unlike the system's, never given to a second thread.
int ThisThread() {
  static std::atomic<int> last = 0;
  thread_local const int number = ++last;
  return number;
}

bool OnlyReleases(std::string_view call) {
  return std::find(RELEASING_CALLS.begin(), RELEASING_CALLS.end(), call.substr(0, call.find('('))) !=
         RELEASING_CALLS.end();
}

int LevelOf(std::string_view logLine) {
  return std::atoi(logLine.substr(LOG_START.size()).data());
}

// For one cell of a table, where long texts only show that they are long.
std::string Cell(std::string_view text) {
  std::string cell;
  for (const char character : text.substr(0, LONGEST_TEXT)) {
    if (character == '|') cell += '\\';
    if (character == '\n') {
      cell += "\\n";
    } else {
      cell += character;
    }
  }
  if (text.size() > LONGEST_TEXT) cell += "...";
  return cell;
}

std::string LogCell(std::string_view logLine, int count) {
  const std::size_t levelEnd = logLine.find(' ', LOG_START.size());
  std::string cell = "`" + Cell(logLine.substr(levelEnd + 1)) + "` (" + std::to_string(LevelOf(logLine));
  if (count > 1) cell += count == 2 ? ", twice" : ", " + std::to_string(count) + " times";
  return cell + ")";
}

}  // namespace

class FailureLedger::Listener : public ::testing::EmptyTestEventListener {
 public:
  explicit Listener(FailureLedger& ledger) : ledger_(ledger) {}

  void OnTestStart(const ::testing::TestInfo& test) override {
    ledger_.BeginTest(std::string(test.test_suite_name()) + "." + test.name());
  }
  void OnTestEnd(const ::testing::TestInfo&) override { ledger_.EndTest(); }
  void OnTestProgramEnd(const ::testing::UnitTest&) override { ledger_.Write(); }

 private:
  FailureLedger& ledger_;
};

namespace {

// The framework must know of the ledger before the first test starts.
[[maybe_unused]] const FailureLedger& listening = FailureLedger::OfThisProgram();

}  // namespace

FailureLedger& FailureLedger::OfThisProgram() {
  // Never destroyed: a thread that outlives its test may still report to it.
  static FailureLedger& ledger = *new FailureLedger;
  return ledger;
}

FailureLedger::FailureLedger() {
  ::testing::UnitTest::GetInstance()->listeners().Append(new Listener(*this));
}

void FailureLedger::Failed(const std::string& function, DWORD code) {
  Begin(function, code == 0 ? "without a code" : CodeText(code));
}

void FailureLedger::FailedByTheWay(const std::string& function, DWORD code) {
  FailedByTheWay(function, CodeText(code));
}

void FailureLedger::FailedByTheWay(const std::string& function, const std::string& how) {
  {
    const Lock::Holder holder(lock_);
    if (concerns_.count(function) == 0) {
      failedSilently_.insert(ThisThread());
      return;
    }
    // Once is enough: it may come again while the test tidies up.
    if (std::any_of(rows_.begin(), rows_.end(),
                    [&](const Row& row) { return row.call == function && row.failure == how; })) {
      return;
    }
  }
  Begin(function, how);
}

void FailureLedger::FailedOtherwise(const std::string& what, const std::string& how) {
  Begin(what, how, true);
}

void FailureLedger::Begin(const std::string& call, const std::string& failure, bool isInput) {
  const int thread = ThisThread();
  const Lock::Holder holder(lock_);
  hasFailed_ = true;
  for (Row& row : rows_) {
    if (row.thread != thread || !row.isOpen || OnlyReleases(call)) continue;
    row.isOpen = row.call == call && row.failure == failure;
    row.isDirect = true;
    if (row.isOpen) return;
  }
  Row row;
  row.call = call;
  row.failure = failure;
  row.thread = thread;
  row.isInput = isInput;
  rows_.push_back(row);
}

void FailureLedger::Happened(std::string_view line) {
  const bool isLog = line.starts_with(LOG_START);
  if (!isLog && (line.find('(') == std::string_view::npos || OnlyReleases(line))) return;
  const int thread = ThisThread();
  const Lock::Holder holder(lock_);
  if (!isLog) {
    failedSilently_.erase(thread);
  } else if (!hasFailed_ && failedSilently_.count(thread) == 0 && LevelOf(line) != ERROR_LEVEL) {
    usualLines_.emplace(line);
  }
  for (Row& row : rows_) {
    if (row.thread != thread || !row.isOpen) continue;
    if (isLog) {
      AddLog(row, line);
    } else {
      row.isDirect = false;
    }
  }
}

void FailureLedger::AddLog(Row& row, std::string_view line) const {
  const bool isTests = row.thread == testThread_;
  if (!row.isDirect && !(isTests && LevelOf(line) <= NOTABLE_LEVEL)) return;
  const auto found = std::find_if(row.log.begin(), row.log.end(),
                                  [line](const LogLine& logged) { return logged.text == line; });
  if (found == row.log.end()) {
    row.log.push_back({std::string(line), 1});
  } else if (isTests) {
    ++found->count;
  }
}

void FailureLedger::Concerns(const std::string& function) {
  const Lock::Holder holder(lock_);
  concerns_.insert(function);
}

void FailureLedger::CameTo(const std::string& result) {
  const Lock::Holder holder(lock_);
  for (Row& row : rows_) {
    if (row.result.empty()) row.result = result;
    // A thread that still runs may be about to write its line.
    if (row.thread == testThread_) row.isOpen = false;
  }
}

void FailureLedger::Chosen(const std::string& function, const std::string& reading) {
  const Lock::Holder holder(lock_);
  readings_[function] = reading;
}

void FailureLedger::SetTheStage() {
  const Lock::Holder holder(lock_);
  rows_.clear();
}

void FailureLedger::BeginTest(const std::string& name) {
  const Lock::Holder holder(lock_);
  test_ = name;
  testThread_ = ThisThread();
  hasFailed_ = false;
  failedSilently_.clear();
  rows_.clear();
  concerns_.clear();
  readings_.clear();
}

void FailureLedger::EndTest() {
  const Lock::Holder holder(lock_);
  for (const Row& row : rows_) {
    const auto reading = readings_.find(row.call);
    entries_.push_back({row, test_, reading == readings_.end() ? std::string() : reading->second,
                        concerns_.count(row.call) != 0});
  }
  rows_.clear();
}

std::string FailureLedger::Text(const Row& row) const {
  std::string log;
  const bool countsEveryLine = row.isInput && row.isDirect;
  for (const LogLine& line : row.log) {
    if (!countsEveryLine && usualLines_.count(line.text) != 0) continue;
    log += (log.empty() ? "" : "<br>") + LogCell(line.text, line.count);
  }
  return "| `" + Cell(row.call) + "` | " + Cell(row.failure) + " | " + (log.empty() ? "none" : log) + " | " +
         (row.result.empty() ? "none" : Cell(row.result));
}

FailureLedger::Page FailureLedger::MakePage() const {
  Page page;
  for (const Entry& entry : entries_) {
    PageRow& row = page[Text(entry.row)];
    if (!entry.reading.empty()) row.readings.insert(entry.reading);
    bool& isConcern = row.tests[entry.test];
    isConcern = isConcern || entry.isConcern;
  }
  return page;
}

void FailureLedger::Write() const {
  const char* const path = std::getenv(VARIABLE);
  if (path == nullptr) return;
  const Lock::Holder holder(lock_);
  const Page page = MakePage();
  std::map<std::string, int> rowCounts;
  for (const auto& [text, row] : page) {
    for (const auto& [test, isConcern] : row.tests) ++rowCounts[test];
  }
  std::ofstream file(path, std::ios::binary);
  for (const auto& [text, row] : page) {
    file << text;
    for (const std::string& reading : row.readings) file << "<br>Chosen: " << Cell(reading);
    std::vector<std::tuple<bool, int, std::string>> tests;
    for (const auto& [test, isConcern] : row.tests) tests.emplace_back(!isConcern, rowCounts[test], test);
    std::sort(tests.begin(), tests.end());
    if (tests.size() > MOST_TESTS) tests.resize(MOST_TESTS);
    const char* separator = " | ";
    for (const auto& [isOther, count, test] : tests) file << std::exchange(separator, "<br>") << test;
    file << " |\n";
  }
  file.close();
  if (file) return;
  std::fprintf(stderr, "the ledger of failures cannot be written to %s\n", path);
  std::abort();
}

std::string CodeText(DWORD code) {
  if (code <= LARGEST_PLAIN_CODE) return std::to_string(code);
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08lx", code);
  return text;
}

std::string Returned(const std::string& call, const std::string& result) {
  CameTo(call + ": \"" + result + "\"");
  return result;
}

std::wstring Returned(const std::string& call, const std::wstring& result) {
  Returned(call, Narrow(result));
  return result;
}

void CameTo(const std::string& result) {
  FailureLedger::OfThisProgram().CameTo(result);
}

}  // namespace ostrel::test
