/* What both stand-in drivers do with their devices and requests. */
#ifndef OSTREL_LAB_DRIVERS_COMMON_DEVICE_H
#define OSTREL_LAB_DRIVERS_COMMON_DEVICE_H

#include <ntddk.h>

/* Information is what was written to the request's buffer; it is not given back with a failure. */
NTSTATUS CompleteRequest(PIRP request, NTSTATUS status, ULONG_PTR information);

NTSTATUS CreateLinkedDevice(PDRIVER_OBJECT driver, const WCHAR* deviceName, const WCHAR* linkName,
                            ULONG deviceType, PDEVICE_OBJECT* device);
void DeleteLinkedDevice(PDEVICE_OBJECT device, const WCHAR* linkName);

/* Counts the requests that are being handled. Wine's driver host unloads a driver although handles are open
 * and a request may be inside it; the real I/O manager does not. */
typedef struct Gate {
  volatile LONG inside;
  volatile LONG entries;
} Gate;

void GateEnter(Gate* gate);
void GateLeave(Gate* gate);
/* Waits until nobody is inside and nobody has come for a while, but not forever: Wine's driver host may hold
 * a request that it has not handed over yet, and would do so after unloading. */
void GateWaitUntilQuiet(Gate* gate);

#endif
