#include "support/log_capture.h"

#include <mutex>
#include <string_view>
#include <utility>

#include "log/log.h"

namespace ostrel_test {

namespace {

constexpr std::wstring_view PREFIX = L"OstrelFilterDriver: ";

// The sink has no context argument, so what it fills cannot belong to one capture.
std::mutex linesMutex;
std::vector<LogLine> lines;

void Record(const wchar_t* text, std::uint32_t level) {
  const std::wstring_view line(text);
  const bool hasPrefix = line.substr(0, PREFIX.size()) == PREFIX;
  const std::lock_guard lock(linesMutex);
  lines.push_back({level, hasPrefix ? std::wstring(line.substr(PREFIX.size()))
                                    : L"WITHOUT PREFIX: " + std::wstring(line)});
}

}  // namespace

void PrintTo(const LogLine& line, std::ostream* stream) {
  *stream << line.level << " \"";
  for (const wchar_t character : line.text) {
    *stream << (character < 128 ? static_cast<char>(character) : '?');
  }
  *stream << '"';
}

LogCapture::LogCapture(std::int32_t level) {
  Take();
  ostrel::SetLogSink(Record, level);
}

LogCapture::~LogCapture() {
  ostrel::SetLogSink(nullptr, 0);
}

std::vector<LogLine> LogCapture::Take() {
  const std::lock_guard lock(linesMutex);
  return std::exchange(lines, {});
}

}  // namespace ostrel_test
