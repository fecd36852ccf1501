/* The notification and control ports of the stand-in minifilter: message queue, waiting requests,
 * acknowledgements, kept configuration messages.
 *
 * One spin lock guards the whole state. Requests are completed only after it is released. */
#ifndef OSTREL_LAB_DRIVERS_MINIFILTER_PORT_H
#define OSTREL_LAB_DRIVERS_MINIFILTER_PORT_H

#include <ntddk.h>

#include "minifilter_wire.h"
#include "request_queue.h"

typedef struct Port {
  KSPIN_LOCK lock;
  LIST_ENTRY queued;      /* QueuedMessage, oldest first */
  LIST_ENTRY outstanding; /* QueuedMessage */
  RequestQueue waiting;   /* get-message requests */
  PFILE_OBJECT client;    /* the notification port's only client, or NULL */
  BOOLEAN unloading;
  KEVENT drained; /* set while nothing is queued or outstanding */
  uint64_t nextMessageId;
  OstrelLabStatus status;
  OstrelLabConfiguration* configurations[OSTREL_LAB_KEPT_CONFIGURATIONS];
} Port;

void PortInitialize(Port* port);

/* Each handler returns the status and sets what it gives back; it neither completes the request nor keeps
 * it. The one exception is PortGetMessage: after STATUS_PENDING the request belongs to the port. */
NTSTATUS PortConnect(Port* port, PFILE_OBJECT file, const void* input, ULONG length);
NTSTATUS PortGetMessage(Port* port, PFILE_OBJECT file, PIRP request, ULONG outputLength);
NTSTATUS PortReply(Port* port, PFILE_OBJECT file, const void* input, ULONG length);
NTSTATUS PortSend(Port* port, PFILE_OBJECT file, const void* input, ULONG length);
void PortDisconnect(Port* port, PFILE_OBJECT file);

NTSTATUS PortSubmit(Port* port, const void* input, ULONG length);
void PortReadStatus(Port* port, OstrelLabStatus* status);
NTSTATUS PortReadConfiguration(Port* port, const OstrelLabConfigurationRequest* request, void* output,
                               ULONG length);
void PortReset(Port* port);

/* Refuses whatever comes from now on, hands the unload notice to a connected client as its last message and
 * gives it some seconds to acknowledge everything; then ends the waiting requests and frees all memory. */
void PortShutDown(Port* port);

#endif
