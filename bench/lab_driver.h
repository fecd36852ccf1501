#ifndef OSTREL_BENCH_LAB_DRIVER_H
#define OSTREL_BENCH_LAB_DRIVER_H

#include <windows.h>

#include <string>

#include "util/unique_handle.h"

namespace ostrel::bench {

// One of the lab's stand-in drivers, running under a service of this program's own for as long as this object
// lives. Throws std::runtime_error with the system's error code.
class LabDriver {
 public:
  LabDriver(std::wstring serviceName, const std::wstring& driverFile);
  LabDriver(const LabDriver&) = delete;
  LabDriver& operator=(const LabDriver&) = delete;
  ~LabDriver();

 private:
  UniqueServiceHandle manager_;
  UniqueServiceHandle service_;
};

// "<what> failed with <the last error>".
[[noreturn]] void ThrowLastError(const std::string& what);

}  // namespace ostrel::bench

#endif
