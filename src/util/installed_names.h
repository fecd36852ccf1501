#ifndef OSTREL_UTIL_INSTALLED_NAMES_H
#define OSTREL_UTIL_INSTALLED_NAMES_H

namespace ostrel {

// The files that come beside the library, from which it installs both drivers.
constexpr wchar_t MINIFILTER_INF[] = L"OstrelFilter.inf";
constexpr wchar_t MINIFILTER_SYS[] = L"OstrelFilter.sys";
constexpr wchar_t NETWORK_DRIVER_INF[] = L"OstrelNWFilter.inf";
constexpr wchar_t NETWORK_DRIVER_SYS[] = L"OstrelNWFilter.sys";

constexpr wchar_t MINIFILTER_SERVICE_NAME[] = L"OstrelFilter";
constexpr wchar_t NETWORK_DRIVER_SERVICE_NAME[] = L"OstrelNWFilter";

// The minifilter's ports: one message of the driver per file event and one acknowledgement of ours per
// message; one configuration message of ours per connection.
constexpr wchar_t NOTIFICATION_PORT_NAME[] = L"\\6E6F3D7A-21A2-4B5F-ABD3-5DCED10CD793";
constexpr wchar_t CONTROL_PORT_NAME[] = L"\\FB6CBA80-7A14-42C2-8697-0D4F43B3405F";

constexpr wchar_t NETWORK_DEVICE_PATH[] = L"\\\\.\\OstrelNWFilter";

// Both are sought from the current directory of the process on.
constexpr wchar_t SERVICE_MODE_HELPER[] = L"nlib\\OstrelUserHelper.exe";
constexpr wchar_t APPLICATION_MODE_HELPER[] = L"OstrelUserHelper.exe";

}  // namespace ostrel

#endif
