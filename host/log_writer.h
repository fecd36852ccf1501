#ifndef OSTREL_HOST_LOG_WRITER_H
#define OSTREL_HOST_LOG_WRITER_H

#include <cstdint>
#include <string>
#include <string_view>

#include "line_writer.h"

namespace ostrel::host {

// The library's levels, which the host's own lines use too.
constexpr std::uint32_t LEVEL_ERROR = 3;
constexpr std::uint32_t LEVEL_NOTABLE = 6;
constexpr std::uint32_t LEVEL_DETAIL = 7;

// "2026-11-21T08:15:30.042Z error  <message>", the time in UTC; the words are error, info and detail.
std::string LogLine(std::uint64_t milliseconds, std::uint32_t level, std::string_view message);

// Puts each line on the console and, where there is one, into the log file. Safe for several threads. A line
// that cannot be written is dropped: there is nowhere to say so.
class LogWriter {
 public:
  // Shows lines up to `level`.
  LogWriter(std::uint32_t level, LineWriter& console, LineWriter* file)
      : level_(level), console_(console), file_(file) {}

  void Write(std::uint32_t level, std::string_view message);

 private:
  std::uint32_t level_;
  LineWriter& console_;
  LineWriter* file_;
};

}  // namespace ostrel::host

#endif
