#ifndef OSTREL_BENCH_LAB_NETWORK_DRIVER_H
#define OSTREL_BENCH_LAB_NETWORK_DRIVER_H

#include <windows.h>

#include <cstdint>
#include <string>

#include "lab_driver.h"
#include "network_wire.h"
#include "util/unique_handle.h"

namespace ostrel::bench {

// The lab's stand-in network driver and the player's side of it. Everything throws std::runtime_error with
// the system's error code.
class LabNetworkDriver {
 public:
  explicit LabNetworkDriver(const std::wstring& driverFile);

  // Completes read requests as fast as they come, until the last handle of the library's device closes.
  void Flood(const OstrelLabFlood& flood);

  OstrelLabNetworkStatus Status();

 private:
  void Control(std::uint32_t code, const void* input, std::size_t inputSize, void* output,
               std::size_t outputSize);

  LabDriver driver_;
  UniqueFileHandle player_;
};

}  // namespace ostrel::bench

#endif
