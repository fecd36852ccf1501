#ifndef OSTREL_TESTS_SUPPORT_LOG_CAPTURE_H
#define OSTREL_TESTS_SUPPORT_LOG_CAPTURE_H

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace ostrel_test {

struct LogLine {
  std::uint32_t level;
  std::wstring text;

  bool operator==(const LogLine& other) const = default;
};

void PrintTo(const LogLine& line, std::ostream* stream);

// Takes the library's log for its lifetime. The lines come without the prefix that every line of the library
// has; one that lacks it is marked, and so equals nothing that a test expects. Any thread may log.
class LogCapture {
 public:
  explicit LogCapture(std::int32_t level = 7);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // The lines since the start or the last call.
  std::vector<LogLine> Take();
};

}  // namespace ostrel_test

#endif
