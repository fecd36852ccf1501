#include "progress.h"

#include <cstdio>

namespace ostrel::lab {

void Print(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

void Progress::Say(const std::string& line) {
  const ULONGLONG now = GetTickCount64();
  if (now < next_) return;
  Print(line);
  next_ = now + INTERVAL_MS;
}

}  // namespace ostrel::lab
