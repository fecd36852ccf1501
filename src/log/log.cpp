#include "log/log.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <iterator>

#include "log/format.h"

namespace ostrel {

namespace {

constexpr std::size_t LINE_CAPACITY = 1024;
constexpr wchar_t PREFIX[] = L"OstrelFilterDriver: ";
constexpr std::size_t PREFIX_LENGTH = std::size(PREFIX) - 1;

std::atomic<LogSink> configuredSink{nullptr};

}  // namespace

// With the sink the one piece of process-wide state below api/: the exported caches log too, and their
// constructors have no room for a logger.
std::atomic<std::int32_t> configuredLogLevel{0};

void SetLogSink(LogSink sink, std::int32_t level) noexcept {
  configuredSink = sink;
  configuredLogLevel = level;
}

void WriteLogLine(std::int32_t level, const wchar_t* format, ...) noexcept {
  const LogSink sink = configuredSink;
  if (sink == nullptr) return;

  wchar_t line[LINE_CAPACITY];
  std::copy_n(PREFIX, PREFIX_LENGTH, line);
  std::va_list arguments;
  va_start(arguments, format);
  FormatBounded(line + PREFIX_LENGTH, LINE_CAPACITY - PREFIX_LENGTH, format, arguments);
  va_end(arguments);
  try {
    sink(line, static_cast<std::uint32_t>(level));
  } catch (...) {
    // A host whose log callback throws loses that line, not its process.
  }
}

}  // namespace ostrel
