#ifndef OSTREL_LAB_PLAYER_PLAYER_H
#define OSTREL_LAB_PLAYER_PLAYER_H

#include <cstdint>
#include <string>
#include <vector>

#include "drivers.h"
#include "scenario.h"
#include "stand_in_process.h"
#include "work_directory.h"

namespace ostrel::lab {

// Plays one scenario: makes its files, starts its processes, waits for a host, sends the events, and waits
// until the host has handled every one. Prints one line per step. Throws a LabError when it cannot go on.
class Player {
 public:
  Player(const Scenario& scenario, const WorkDirectory& workDirectory, std::uint32_t hostWaitSeconds);

  void Play();

 private:
  void Prepare();
  // The drivers may be loaded, and so their devices appear, only after the player has started.
  Drivers WaitForHost();

  void Run(Drivers& drivers, const EventStep& step);
  void Run(Drivers& drivers, const WaitStep& step);
  void Run(Drivers& drivers, const ExitStep& step);
  void Run(Drivers& drivers, const UnloadStep& step);
  void Run(Drivers& drivers, const TrafficStep& step);
  void Run(Drivers& drivers, const FloodStep& step);

  OstrelLabEvent MakeEvent(const EventStep& step) const;
  OstrelLabPacketRecord MakeRecord(const StreamEntry& stream, std::uint64_t bytes, std::int64_t time) const;

  const Scenario& scenario_;
  const WorkDirectory& workDirectory_;
  const std::uint32_t hostWaitSeconds_;
  std::vector<StandInProcess> processes_;
  std::int64_t now_ = 0;  // milliseconds since 1970, fixed before the first step
};

}  // namespace ostrel::lab

#endif
