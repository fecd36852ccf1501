#ifndef OSTREL_LAB_PLAYER_CHECK_H
#define OSTREL_LAB_PLAYER_CHECK_H

#include <cstdint>
#include <string>

#include "scenario.h"
#include "work_directory.h"

namespace ostrel::lab {

// Prints expected against reported and returns whether they agree. With a wait it looks again until they
// agree or the time is over. Throws a LabError when the file cannot be read or holds something else than
// detections.
bool CheckDetections(const Scenario& scenario, const WorkDirectory& workDirectory,
                     const std::wstring& detectionsPath, std::uint32_t waitSeconds);

}  // namespace ostrel::lab

#endif
