/* OstrelNWFilter.sys: stands in for the network driver. It sees no traffic; the player feeds it the records
 * that the real one would have made. */
#include <ntddk.h>

#include "device.h"
#include "monitor.h"

/* Everything this driver owns; the one global, since the entry points receive nothing of ours. */
static struct {
  Monitor monitor;
  PDEVICE_OBJECT device;
  PDEVICE_OBJECT playerDevice;
  Gate gate;
} network;

DRIVER_INITIALIZE DriverEntry;

static NTSTATUS ControlMonitor(Monitor* monitor, PIRP request, PIO_STACK_LOCATION stack) {
  const void* input = request->AssociatedIrp.SystemBuffer;
  const ULONG inputLength = stack->Parameters.DeviceIoControl.InputBufferLength;
  const ULONG outputLength = stack->Parameters.DeviceIoControl.OutputBufferLength;
  NTSTATUS status;
  switch (stack->Parameters.DeviceIoControl.IoControlCode) {
    case OSTREL_LAB_NETWORK_READ:
      status = MonitorRead(monitor, request, outputLength);
      return status == STATUS_PENDING ? status : CompleteRequest(request, status, 0);
    case OSTREL_LAB_NETWORK_ENABLE:
      return CompleteRequest(request, MonitorEnable(monitor, input, inputLength), 0);
    case OSTREL_LAB_NETWORK_PROCESS_LIST:
      return CompleteRequest(request, MonitorTakeProcessList(monitor, input, inputLength), 0);
    default:
      return CompleteRequest(request, STATUS_INVALID_DEVICE_REQUEST, 0);
  }
}

static NTSTATUS ReadStatus(Monitor* monitor, PIRP request, ULONG outputLength) {
  if (outputLength < sizeof(OstrelLabNetworkStatus))
    return CompleteRequest(request, STATUS_BUFFER_TOO_SMALL, 0);
  MonitorReadStatus(monitor, request->AssociatedIrp.SystemBuffer);
  return CompleteRequest(request, STATUS_SUCCESS, sizeof(OstrelLabNetworkStatus));
}

static NTSTATUS ReadProcessList(Monitor* monitor, PIRP request, ULONG inputLength, ULONG outputLength) {
  void* buffer = request->AssociatedIrp.SystemBuffer;
  uint32_t offset; /* the output lies over it */
  if (inputLength != sizeof(offset)) return CompleteRequest(request, STATUS_INVALID_PARAMETER, 0);
  offset = *(const uint32_t*)buffer;
  return CompleteRequest(request, MonitorReadProcessList(monitor, offset, buffer, outputLength),
                         outputLength);
}

static NTSTATUS ControlPlayer(Monitor* monitor, PIRP request, PIO_STACK_LOCATION stack) {
  const void* input = request->AssociatedIrp.SystemBuffer;
  const ULONG inputLength = stack->Parameters.DeviceIoControl.InputBufferLength;
  const ULONG outputLength = stack->Parameters.DeviceIoControl.OutputBufferLength;
  switch (stack->Parameters.DeviceIoControl.IoControlCode) {
    case OSTREL_LAB_NETWORK_PLAYER_SUBMIT:
      return CompleteRequest(request, MonitorSubmit(monitor, input, inputLength), 0);
    case OSTREL_LAB_NETWORK_PLAYER_FLOOD:
      return CompleteRequest(request, MonitorFlood(monitor, input, inputLength), 0);
    case OSTREL_LAB_NETWORK_PLAYER_STATUS:
      return ReadStatus(monitor, request, outputLength);
    case OSTREL_LAB_NETWORK_PLAYER_PROCESS_LIST:
      return ReadProcessList(monitor, request, inputLength, outputLength);
    case OSTREL_LAB_NETWORK_PLAYER_RESET:
      MonitorReset(monitor);
      return CompleteRequest(request, STATUS_SUCCESS, 0);
    default:
      return CompleteRequest(request, STATUS_INVALID_DEVICE_REQUEST, 0);
  }
}

static NTSTATUS Handle(PDEVICE_OBJECT device, PIRP request) {
  PIO_STACK_LOCATION stack = IoGetCurrentIrpStackLocation(request);
  const BOOLEAN isPlayer = device == network.playerDevice;
  switch (stack->MajorFunction) {
    case IRP_MJ_DEVICE_CONTROL:
      return isPlayer ? ControlPlayer(&network.monitor, request, stack)
                      : ControlMonitor(&network.monitor, request, stack);
    case IRP_MJ_CREATE:
      return CompleteRequest(request,
                             isPlayer ? STATUS_SUCCESS : MonitorOpen(&network.monitor, stack->FileObject), 0);
    default: /* IRP_MJ_CLEANUP, IRP_MJ_CLOSE */
      if (!isPlayer) MonitorClose(&network.monitor, stack->FileObject);
      return CompleteRequest(request, STATUS_SUCCESS, 0);
  }
}

static NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT device, PIRP request) {
  NTSTATUS status;
  GateEnter(&network.gate);
  status = Handle(device, request);
  GateLeave(&network.gate);
  return status;
}

static void NTAPI Unload(PDRIVER_OBJECT driver) {
  (void)driver;
  MonitorShutDown(&network.monitor);
  GateWaitUntilQuiet(&network.gate);
  DeleteLinkedDevice(network.playerDevice, OSTREL_LAB_NETWORK_PLAYER_LINK);
  DeleteLinkedDevice(network.device, OSTREL_LAB_NETWORK_LINK);
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
  NTSTATUS status;
  (void)registryPath;
  MonitorInitialize(&network.monitor);
  driver->MajorFunction[IRP_MJ_CREATE] = Dispatch;
  driver->MajorFunction[IRP_MJ_CLEANUP] = Dispatch;
  driver->MajorFunction[IRP_MJ_CLOSE] = Dispatch;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = Dispatch;
  driver->DriverUnload = Unload;
  status = CreateLinkedDevice(driver, OSTREL_LAB_NETWORK_DEVICE, OSTREL_LAB_NETWORK_LINK, FILE_DEVICE_NETWORK,
                              &network.device);
  if (!NT_SUCCESS(status)) return status;
  status = CreateLinkedDevice(driver, OSTREL_LAB_NETWORK_PLAYER_DEVICE, OSTREL_LAB_NETWORK_PLAYER_LINK,
                              FILE_DEVICE_UNKNOWN, &network.playerDevice);
  if (!NT_SUCCESS(status)) DeleteLinkedDevice(network.device, OSTREL_LAB_NETWORK_LINK);
  return status;
}
