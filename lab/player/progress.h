#ifndef OSTREL_LAB_PLAYER_PROGRESS_H
#define OSTREL_LAB_PLAYER_PROGRESS_H

#include <windows.h>

#include <string>

namespace ostrel::lab {

// One line, shown at once.
void Print(const std::string& line);

// Says from time to time what is being waited for.
class Progress {
 public:
  static constexpr ULONGLONG INTERVAL_MS = 5000;

  explicit Progress(ULONGLONG firstAfterMs = INTERVAL_MS) : next_(GetTickCount64() + firstAfterMs) {}

  void Say(const std::string& line);

 private:
  ULONGLONG next_;
};

}  // namespace ostrel::lab

#endif
