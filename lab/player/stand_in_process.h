#ifndef OSTREL_LAB_PLAYER_STAND_IN_PROCESS_H
#define OSTREL_LAB_PLAYER_STAND_IN_PROCESS_H

#include <windows.h>

#include <string>

#include "scenario.h"
#include "util/unique_handle.h"

namespace ostrel::lab {

// A running copy of OstrelLabProcess.exe under an image name of the scenario. Ended and removed with its
// owner; it ends by itself when the player dies.
class StandInProcess {
 public:
  // Returns when the process's windows can be seen. `directory` exists and takes the copy; without a `parent`
  // the player is the process's parent.
  static StandInProcess Start(const std::wstring& directory, const ProcessEntry& entry,
                              const StandInProcess* parent);
  StandInProcess(StandInProcess&&) = default;
  StandInProcess& operator=(StandInProcess&&) = delete;
  ~StandInProcess();

  // Stays known after the process has ended, so that a scenario can name a process that has gone.
  DWORD Id() const { return id_; }

  // Ends the process and waits until nobody can open it any more: it lives on as long as anybody holds a
  // handle.
  void Vanish();

 private:
  explicit StandInProcess(std::wstring path) : path_(std::move(path)) {}

  void Run(const ProcessEntry& entry, const StandInProcess* parent);
  void WaitForWindows(std::size_t count);
  void End();

  std::wstring path_;
  UniqueKernelHandle process_;
  DWORD id_ = 0;
};

}  // namespace ostrel::lab

#endif
