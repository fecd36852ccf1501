#include "device.h"

NTSTATUS CompleteRequest(PIRP request, NTSTATUS status, ULONG_PTR information) {
  request->IoStatus.Status = status;
  request->IoStatus.Information = NT_SUCCESS(status) ? information : 0;
  IoCompleteRequest(request, IO_NO_INCREMENT);
  return status;
}

NTSTATUS CreateLinkedDevice(PDRIVER_OBJECT driver, const WCHAR* deviceName, const WCHAR* linkName,
                            ULONG deviceType, PDEVICE_OBJECT* device) {
  UNICODE_STRING name;
  UNICODE_STRING link;
  NTSTATUS status;
  RtlInitUnicodeString(&name, deviceName);
  RtlInitUnicodeString(&link, linkName);
  status = IoCreateDevice(driver, 0, &name, deviceType, 0, FALSE, device);
  if (!NT_SUCCESS(status)) return status;
  (*device)->Flags |= DO_BUFFERED_IO;
  (*device)->Flags &= ~(ULONG)DO_DEVICE_INITIALIZING;
  status = IoCreateSymbolicLink(&link, &name);
  if (!NT_SUCCESS(status)) IoDeleteDevice(*device);
  return status;
}

void DeleteLinkedDevice(PDEVICE_OBJECT device, const WCHAR* linkName) {
  UNICODE_STRING link;
  RtlInitUnicodeString(&link, linkName);
  IoDeleteSymbolicLink(&link);
  IoDeleteDevice(device);
}

void GateEnter(Gate* gate) {
  InterlockedIncrement(&gate->inside);
  InterlockedIncrement(&gate->entries);
}

void GateLeave(Gate* gate) {
  InterlockedDecrement(&gate->inside);
}

static LONG Read(volatile LONG* value) {
  return InterlockedCompareExchange(value, 0, 0);
}

void GateWaitUntilQuiet(Gate* gate) {
  const int patience = 100;
  LARGE_INTEGER tenMilliseconds;
  LONG seen = Read(&gate->entries);
  LONG before = seen - 1;
  tenMilliseconds.QuadPart = -100000;
  for (int waited = 0; Read(&gate->inside) != 0 || (seen != before && waited < patience); ++waited) {
    KeDelayExecutionThread(KernelMode, FALSE, &tenMilliseconds);
    before = seen;
    seen = Read(&gate->entries);
  }
}
