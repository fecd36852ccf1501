/* OstrelNWFilter.sys: stands in for the network driver. It starts, owns its device and stops; it offers no
 * requests yet. */
#include <ntddk.h>

#define DEVICE_NAME L"\\Device\\OstrelNWFilter"
#define LINK_NAME L"\\??\\OstrelNWFilter"

DRIVER_INITIALIZE DriverEntry;

static NTSTATUS NTAPI OpenOrClose(PDEVICE_OBJECT device, PIRP request) {
  (void)device;
  request->IoStatus.Status = STATUS_SUCCESS;
  request->IoStatus.Information = 0;
  IoCompleteRequest(request, IO_NO_INCREMENT);
  return STATUS_SUCCESS;
}

static void NTAPI Unload(PDRIVER_OBJECT driver) {
  UNICODE_STRING link;
  RtlInitUnicodeString(&link, LINK_NAME);
  IoDeleteSymbolicLink(&link);
  IoDeleteDevice(driver->DeviceObject);
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
  UNICODE_STRING name;
  UNICODE_STRING link;
  PDEVICE_OBJECT device;
  NTSTATUS status;
  (void)registryPath;
  RtlInitUnicodeString(&name, DEVICE_NAME);
  RtlInitUnicodeString(&link, LINK_NAME);
  status = IoCreateDevice(driver, 0, &name, FILE_DEVICE_NETWORK, 0, FALSE, &device);
  if (!NT_SUCCESS(status)) return status;
  status = IoCreateSymbolicLink(&link, &name);
  if (!NT_SUCCESS(status)) {
    IoDeleteDevice(device);
    return status;
  }
  driver->MajorFunction[IRP_MJ_CREATE] = OpenOrClose;
  driver->MajorFunction[IRP_MJ_CLEANUP] = OpenOrClose;
  driver->MajorFunction[IRP_MJ_CLOSE] = OpenOrClose;
  driver->DriverUnload = Unload;
  return STATUS_SUCCESS;
}
