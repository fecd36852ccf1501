#include "log_writer.h"

#include "iso_time.h"

namespace ostrel::host {

namespace {

// All of one width, so that the messages line up.
const char* WordOf(std::uint32_t level) {
  if (level <= LEVEL_ERROR) return "error ";
  return level <= LEVEL_NOTABLE ? "info  " : "detail";
}

}  // namespace

std::string LogLine(std::uint64_t milliseconds, std::uint32_t level, std::string_view message) {
  return IsoTime(milliseconds) + " " + WordOf(level) + " " + std::string(message);
}

void LogWriter::Write(std::uint32_t level, std::string_view message) {
  if (level > level_) return;
  const std::string line = LogLine(MillisecondsNow(), level, message);
  console_.Write(line);
  if (file_ != nullptr) file_->Write(line);
}

}  // namespace ostrel::host
