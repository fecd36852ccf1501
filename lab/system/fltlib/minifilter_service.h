#ifndef OSTREL_LAB_SYSTEM_FLTLIB_MINIFILTER_SERVICE_H
#define OSTREL_LAB_SYSTEM_FLTLIB_MINIFILTER_SERVICE_H

#include <windows.h>

namespace ostrel::lab {

// Both need the load-driver privilege enabled in the caller's token, and return when the driver is running or
// has stopped.
HRESULT LoadMinifilter(const wchar_t* serviceName);
HRESULT UnloadMinifilter(const wchar_t* serviceName);

}  // namespace ostrel::lab

#endif
