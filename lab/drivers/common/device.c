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
}

void GateLeave(Gate* gate) {
  InterlockedDecrement(&gate->inside);
}

void GateWaitUntilEmpty(Gate* gate) {
  LARGE_INTEGER millisecond;
  millisecond.QuadPart = -10000;
  while (InterlockedCompareExchange(&gate->inside, 0, 0) != 0) {
    KeDelayExecutionThread(KernelMode, FALSE, &millisecond);
  }
}
