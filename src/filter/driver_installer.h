#ifndef OSTREL_FILTER_DRIVER_INSTALLER_H
#define OSTREL_FILTER_DRIVER_INSTALLER_H

#include <string>

namespace ostrel {

// The minifilter's service and the names of the files that come beside the library.
constexpr wchar_t MINIFILTER_SERVICE_NAME[] = L"OstrelFilter";
constexpr wchar_t MINIFILTER_INF[] = L"OstrelFilter.inf";
constexpr wchar_t MINIFILTER_SYS[] = L"OstrelFilter.sys";
constexpr wchar_t NETWORK_DRIVER_INF[] = L"OstrelNWFilter.inf";
constexpr wchar_t NETWORK_DRIVER_SYS[] = L"OstrelNWFilter.sys";

// Unloads the minifilter, whichever driver is being installed, copies the driver file from the library's own
// directory to the system's and registers the service from the INF. True when the file was copied: a failed
// service setup alone is only logged.
bool InstallDriver(const std::wstring& infFileName, const std::wstring& sysFileName);

}  // namespace ostrel

#endif
