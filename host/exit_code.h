#ifndef OSTREL_HOST_EXIT_CODE_H
#define OSTREL_HOST_EXIT_CODE_H

namespace ostrel::host {

// What --help lists. Scripts depend on the numbers.
enum class ExitCode : int {
  Success = 0,
  Internal = 1,
  Usage = 2,
  DriverFilesMissing = 3,
  NotElevated = 4,
  InstallFailed = 5,
  LoadFailed = 6,
  PortRefused = 7,
  UnloadFailed = 8,
  OutputFailed = 9,
  RemoteAddressInfoFailed = 10,
  QueryFailed = 11,
  SelfCheckFailed = 12,
};

}  // namespace ostrel::host

#endif
