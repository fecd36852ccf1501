/* OstrelFilter.sys: stands in for the minifilter. It sees no file system; the player feeds it the events that
 * the real one would have seen. */
#include <ntddk.h>

#include "device.h"
#include "port.h"

/* Everything this driver owns; the one global, since the entry points receive nothing of ours. */
static struct {
  Port port;
  PDEVICE_OBJECT portDevice;
  PDEVICE_OBJECT playerDevice;
  Gate gate;
} minifilter;

DRIVER_INITIALIZE DriverEntry;

static NTSTATUS ControlPort(Port* port, PIRP request, PIO_STACK_LOCATION stack) {
  const void* input = request->AssociatedIrp.SystemBuffer;
  const ULONG inputLength = stack->Parameters.DeviceIoControl.InputBufferLength;
  const ULONG outputLength = stack->Parameters.DeviceIoControl.OutputBufferLength;
  NTSTATUS status;
  switch (stack->Parameters.DeviceIoControl.IoControlCode) {
    case OSTREL_LAB_PORT_CONNECT:
      return CompleteRequest(request, PortConnect(port, stack->FileObject, input, inputLength), 0);
    case OSTREL_LAB_PORT_GET_MESSAGE:
      status = PortGetMessage(port, stack->FileObject, request, outputLength);
      return status == STATUS_PENDING ? status : CompleteRequest(request, status, 0);
    case OSTREL_LAB_PORT_REPLY:
      return CompleteRequest(request, PortReply(port, stack->FileObject, input, inputLength), 0);
    case OSTREL_LAB_PORT_SEND:
      return CompleteRequest(request, PortSend(port, stack->FileObject, input, inputLength), 0);
    default:
      return CompleteRequest(request, STATUS_INVALID_DEVICE_REQUEST, 0);
  }
}

static NTSTATUS ReadStatus(Port* port, PIRP request, ULONG outputLength) {
  if (outputLength < sizeof(OstrelLabStatus)) return CompleteRequest(request, STATUS_BUFFER_TOO_SMALL, 0);
  PortReadStatus(port, request->AssociatedIrp.SystemBuffer);
  return CompleteRequest(request, STATUS_SUCCESS, sizeof(OstrelLabStatus));
}

static NTSTATUS ReadConfiguration(Port* port, PIRP request, ULONG inputLength, ULONG outputLength) {
  void* buffer = request->AssociatedIrp.SystemBuffer;
  if (inputLength != sizeof(OstrelLabConfigurationRequest))
    return CompleteRequest(request, STATUS_INVALID_PARAMETER, 0);
  return CompleteRequest(request, PortReadConfiguration(port, buffer, buffer, outputLength), outputLength);
}

static NTSTATUS ControlPlayer(Port* port, PIRP request, PIO_STACK_LOCATION stack) {
  const ULONG inputLength = stack->Parameters.DeviceIoControl.InputBufferLength;
  const ULONG outputLength = stack->Parameters.DeviceIoControl.OutputBufferLength;
  switch (stack->Parameters.DeviceIoControl.IoControlCode) {
    case OSTREL_LAB_PLAYER_SUBMIT:
      return CompleteRequest(request, PortSubmit(port, request->AssociatedIrp.SystemBuffer, inputLength), 0);
    case OSTREL_LAB_PLAYER_STATUS:
      return ReadStatus(port, request, outputLength);
    case OSTREL_LAB_PLAYER_CONFIGURATION:
      return ReadConfiguration(port, request, inputLength, outputLength);
    case OSTREL_LAB_PLAYER_RESET:
      PortReset(port);
      return CompleteRequest(request, STATUS_SUCCESS, 0);
    default:
      return CompleteRequest(request, STATUS_INVALID_DEVICE_REQUEST, 0);
  }
}

static NTSTATUS Handle(PDEVICE_OBJECT device, PIRP request) {
  PIO_STACK_LOCATION stack = IoGetCurrentIrpStackLocation(request);
  const BOOLEAN isPlayer = device == minifilter.playerDevice;
  switch (stack->MajorFunction) {
    case IRP_MJ_DEVICE_CONTROL:
      return isPlayer ? ControlPlayer(&minifilter.port, request, stack)
                      : ControlPort(&minifilter.port, request, stack);
    case IRP_MJ_CLEANUP:
    case IRP_MJ_CLOSE:
      if (!isPlayer) PortDisconnect(&minifilter.port, stack->FileObject);
      return CompleteRequest(request, STATUS_SUCCESS, 0);
    default: /* IRP_MJ_CREATE */
      return CompleteRequest(request, STATUS_SUCCESS, 0);
  }
}

static NTSTATUS NTAPI Dispatch(PDEVICE_OBJECT device, PIRP request) {
  NTSTATUS status;
  GateEnter(&minifilter.gate);
  status = Handle(device, request);
  GateLeave(&minifilter.gate);
  return status;
}

static void NTAPI Unload(PDRIVER_OBJECT driver) {
  (void)driver;
  PortShutDown(&minifilter.port);
  GateWaitUntilQuiet(&minifilter.gate);
  DeleteLinkedDevice(minifilter.playerDevice, OSTREL_LAB_PLAYER_LINK);
  DeleteLinkedDevice(minifilter.portDevice, OSTREL_LAB_PORT_LINK);
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
  NTSTATUS status;
  (void)registryPath;
  PortInitialize(&minifilter.port);
  driver->MajorFunction[IRP_MJ_CREATE] = Dispatch;
  driver->MajorFunction[IRP_MJ_CLEANUP] = Dispatch;
  driver->MajorFunction[IRP_MJ_CLOSE] = Dispatch;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = Dispatch;
  driver->DriverUnload = Unload;
  status = CreateLinkedDevice(driver, OSTREL_LAB_PORT_DEVICE, OSTREL_LAB_PORT_LINK, FILE_DEVICE_UNKNOWN,
                              &minifilter.portDevice);
  if (!NT_SUCCESS(status)) return status;
  status = CreateLinkedDevice(driver, OSTREL_LAB_PLAYER_DEVICE, OSTREL_LAB_PLAYER_LINK, FILE_DEVICE_UNKNOWN,
                              &minifilter.playerDevice);
  if (!NT_SUCCESS(status)) DeleteLinkedDevice(minifilter.portDevice, OSTREL_LAB_PORT_LINK);
  return status;
}
