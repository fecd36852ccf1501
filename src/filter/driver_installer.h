#ifndef OSTREL_FILTER_DRIVER_INSTALLER_H
#define OSTREL_FILTER_DRIVER_INSTALLER_H

#include <string>

namespace ostrel {

// Unloads the minifilter, whichever driver is being installed, copies the driver file from the library's own
// directory to the system's and registers the service from the INF. True when the file was copied: a failed
// service setup alone is only logged.
bool InstallDriver(const std::wstring& infFileName, const std::wstring& sysFileName);

}  // namespace ostrel

#endif
