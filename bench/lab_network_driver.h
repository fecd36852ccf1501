#ifndef OSTREL_BENCH_LAB_NETWORK_DRIVER_H
#define OSTREL_BENCH_LAB_NETWORK_DRIVER_H

#include <windows.h>

#include <cstdint>
#include <string>

#include "network_wire.h"
#include "util/unique_handle.h"

namespace ostrel::bench {

// The lab's stand-in network driver, running under a service of this program's own for as long as this object
// lives. Everything throws std::runtime_error with the system's error code.
class LabNetworkDriver {
 public:
  explicit LabNetworkDriver(const std::wstring& driverFile);
  LabNetworkDriver(const LabNetworkDriver&) = delete;
  LabNetworkDriver& operator=(const LabNetworkDriver&) = delete;
  ~LabNetworkDriver();

  // Completes read requests as fast as they come, until the last handle of the library's device closes.
  void Flood(const OstrelLabFlood& flood);

  OstrelLabNetworkStatus Status();

 private:
  void Control(std::uint32_t code, const void* input, std::size_t inputSize, void* output,
               std::size_t outputSize);

  UniqueServiceHandle manager_;
  UniqueServiceHandle service_;
  UniqueFileHandle player_;
};

// "<what> failed with <the last error>".
[[noreturn]] void ThrowLastError(const std::string& what);

}  // namespace ostrel::bench

#endif
