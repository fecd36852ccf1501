/* What the stand-in network driver knows: who has its device open, the read requests that wait, the records
 * that wait for one, and the newest process list.
 *
 * One spin lock guards the whole state. Requests are completed only after it is released. */
#ifndef OSTREL_LAB_DRIVERS_NETWORK_MONITOR_H
#define OSTREL_LAB_DRIVERS_NETWORK_MONITOR_H

#include <ntddk.h>

#include "network_wire.h"
#include "request_queue.h"

typedef struct Monitor {
  KSPIN_LOCK lock;
  RequestQueue reads;
  BOOLEAN unloading;
  OstrelLabFlood flood; /* what is left of it */
  uint64_t floodMade;
  OstrelLabNetworkStatus status;
  uint32_t firstQueued;
  OstrelLabPacketRecord queue[OSTREL_LAB_NETWORK_QUEUE_CAPACITY]; /* a ring */
  OstrelLabConfiguration* processList;                            /* NULL before the first */
} Monitor;

void MonitorInitialize(Monitor* monitor);

/* Each handler returns the status and sets what it gives back; it neither completes the request nor keeps it.
 * The one exception is MonitorRead: after STATUS_PENDING the request belongs to the monitor. */
NTSTATUS MonitorOpen(Monitor* monitor, PFILE_OBJECT file);
NTSTATUS MonitorEnable(Monitor* monitor, const void* input, ULONG length);
NTSTATUS MonitorRead(Monitor* monitor, PIRP request, ULONG outputLength);
NTSTATUS MonitorTakeProcessList(Monitor* monitor, const void* input, ULONG length);
/* Ends the handle's waiting requests; with the last handle, monitoring ends as well. Harmless when repeated.
 */
void MonitorClose(Monitor* monitor, PFILE_OBJECT file);

NTSTATUS MonitorSubmit(Monitor* monitor, const void* input, ULONG length);
NTSTATUS MonitorFlood(Monitor* monitor, const void* input, ULONG length);
void MonitorReadStatus(Monitor* monitor, OstrelLabNetworkStatus* status);
NTSTATUS MonitorReadProcessList(Monitor* monitor, uint32_t offset, void* output, ULONG length);
void MonitorReset(Monitor* monitor);

/* Refuses whatever comes from now on, ends every waiting request and frees all memory. */
void MonitorShutDown(Monitor* monitor);

#endif
