#include "monitor.h"

#include "device.h"

#define POOL_TAG 0x6E74734Fu /* "Ostn" */

/* Marks a handle that counts as open; kept in FsContext. */
#define OPEN ((void*)1)

void MonitorInitialize(Monitor* monitor) {
  RtlZeroMemory(monitor, sizeof(*monitor));
  KeInitializeSpinLock(&monitor->lock);
  RequestQueueInitialize(&monitor->reads, &monitor->lock);
}

/* ---- Below: helpers that need the lock held ---- */

static BOOLEAN IsMonitoring(const Monitor* monitor) {
  return monitor->status.enabled != 0 && !monitor->unloading;
}

static void Enqueue(Monitor* monitor, const OstrelLabPacketRecord* record) {
  OstrelLabNetworkStatus* status = &monitor->status;
  if (status->queued == OSTREL_LAB_NETWORK_QUEUE_CAPACITY) {
    ++status->dropped;
    return;
  }
  monitor->queue[(monitor->firstQueued + status->queued) % OSTREL_LAB_NETWORK_QUEUE_CAPACITY] = *record;
  ++status->queued;
}

static void DropQueue(Monitor* monitor) {
  monitor->status.dropped += monitor->status.queued;
  monitor->status.queued = 0;
  monitor->flood.count = 0;
}

static OstrelLabPacketRecord NextOfFlood(Monitor* monitor) {
  OstrelLabFlood* flood = &monitor->flood;
  OstrelLabPacketRecord record = flood->first;
  record.port += (int32_t)(monitor->floodMade % flood->ports);
  flood->first.bytes += flood->bytesStep;
  flood->first.time += flood->timeStep;
  --flood->count;
  ++monitor->floodMade;
  ++monitor->status.flooded;
  return record;
}

static BOOLEAN HasRecord(const Monitor* monitor) {
  return IsMonitoring(monitor) && (monitor->status.queued != 0 || monitor->flood.count != 0);
}

/* Records that were submitted go before those that a flood makes. */
static OstrelLabPacketRecord NextRecord(Monitor* monitor) {
  OstrelLabPacketRecord record;
  if (monitor->status.queued == 0) return NextOfFlood(monitor);
  record = monitor->queue[monitor->firstQueued];
  monitor->firstQueued = (monitor->firstQueued + 1) % OSTREL_LAB_NETWORK_QUEUE_CAPACITY;
  --monitor->status.queued;
  return record;
}

/* ---- Above: helpers that need the lock held ---- */

/* Brings records and waiting requests together. */
static void DeliverAll(Monitor* monitor) {
  for (;;) {
    KIRQL irql;
    PIRP request = NULL;
    KeAcquireSpinLock(&monitor->lock, &irql);
    if (HasRecord(monitor)) request = RequestQueueTake(&monitor->reads);
    if (request != NULL) {
      *(OstrelLabPacketRecord*)request->AssociatedIrp.SystemBuffer = NextRecord(monitor);
      ++monitor->status.completed;
    }
    KeReleaseSpinLock(&monitor->lock, irql);
    if (request == NULL) return;
    CompleteRequest(request, STATUS_SUCCESS, sizeof(OstrelLabPacketRecord));
  }
}

/* The waiting requests of one handle, or of all without one. */
static void EndReads(Monitor* monitor, PFILE_OBJECT file) {
  for (;;) {
    KIRQL irql;
    PIRP request;
    KeAcquireSpinLock(&monitor->lock, &irql);
    request = file == NULL ? RequestQueueTake(&monitor->reads) : RequestQueueTakeOf(&monitor->reads, file);
    if (request != NULL) ++monitor->reads.cancelled;
    KeReleaseSpinLock(&monitor->lock, irql);
    if (request == NULL) return;
    CompleteRequest(request, STATUS_CANCELLED, 0);
  }
}

NTSTATUS MonitorOpen(Monitor* monitor, PFILE_OBJECT file) {
  KIRQL irql;
  NTSTATUS status = STATUS_SUCCESS;
  KeAcquireSpinLock(&monitor->lock, &irql);
  if (monitor->unloading) {
    status = STATUS_DELETE_PENDING;
  } else {
    file->FsContext = OPEN;
    ++monitor->status.handles;
  }
  KeReleaseSpinLock(&monitor->lock, irql);
  return status;
}

void MonitorClose(Monitor* monitor, PFILE_OBJECT file) {
  KIRQL irql;
  KeAcquireSpinLock(&monitor->lock, &irql);
  if (file->FsContext == OPEN) {
    file->FsContext = NULL;
    if (--monitor->status.handles == 0) {
      monitor->status.enabled = 0;
      DropQueue(monitor);
    }
  }
  KeReleaseSpinLock(&monitor->lock, irql);
  EndReads(monitor, file);
}

NTSTATUS MonitorEnable(Monitor* monitor, const void* input, ULONG length) {
  const OstrelLabEnable* request = input;
  NTSTATUS status = STATUS_SUCCESS;
  KIRQL irql;
  if (length != sizeof(*request)) {
    status = STATUS_INFO_LENGTH_MISMATCH;
  } else if (request->enable != 1 || request->reserved != 0) {
    status = STATUS_INVALID_PARAMETER;
  }
  KeAcquireSpinLock(&monitor->lock, &irql);
  if (NT_SUCCESS(status)) {
    monitor->status.enabled = 1;
    ++monitor->status.enables;
  } else {
    ++monitor->status.badEnables;
  }
  KeReleaseSpinLock(&monitor->lock, irql);
  return status;
}

NTSTATUS MonitorRead(Monitor* monitor, PIRP request, ULONG outputLength) {
  KIRQL irql;
  NTSTATUS status = STATUS_DELETE_PENDING;
  if (outputLength < sizeof(OstrelLabPacketRecord)) return STATUS_BUFFER_TOO_SMALL;
  KeAcquireSpinLock(&monitor->lock, &irql);
  if (!monitor->unloading) {
    status = RequestQueuePark(&monitor->reads, request);
    ++monitor->status.reads;
  }
  KeReleaseSpinLock(&monitor->lock, irql);
  if (status == STATUS_PENDING) DeliverAll(monitor);
  return status;
}

static NTSTATUS CheckProcessList(const OstrelLabConfiguration* list, ULONG length) {
  if (length != sizeof(*list)) return STATUS_INFO_LENGTH_MISMATCH;
  return list->code == OSTREL_LAB_PROTOCOL_CODE ? STATUS_SUCCESS : STATUS_INVALID_PARAMETER;
}

NTSTATUS MonitorTakeProcessList(Monitor* monitor, const void* input, ULONG length) {
  OstrelLabConfiguration* fresh = NULL;
  KIRQL irql;
  NTSTATUS status = CheckProcessList(input, length);
  if (NT_SUCCESS(status)) {
    fresh = ExAllocatePoolWithTag(NonPagedPool, sizeof(*fresh), POOL_TAG);
    if (fresh == NULL) return STATUS_INSUFFICIENT_RESOURCES;
    RtlCopyMemory(fresh, input, sizeof(*fresh));
  }
  KeAcquireSpinLock(&monitor->lock, &irql);
  if (fresh != NULL) {
    OstrelLabConfiguration* old = monitor->processList;
    monitor->processList = fresh;
    fresh = old;
    ++monitor->status.processLists;
  } else {
    ++monitor->status.badProcessLists;
  }
  KeReleaseSpinLock(&monitor->lock, irql);
  if (fresh != NULL) ExFreePoolWithTag(fresh, POOL_TAG);
  return status;
}

NTSTATUS MonitorSubmit(Monitor* monitor, const void* input, ULONG length) {
  const OstrelLabPacketRecord* records = input;
  const uint32_t count = length / sizeof(*records);
  NTSTATUS status = STATUS_DEVICE_NOT_READY;
  KIRQL irql;
  if (count == 0 || length % sizeof(*records) != 0) return STATUS_INVALID_PARAMETER;
  for (uint32_t i = 0; i < count; ++i) {
    KeAcquireSpinLock(&monitor->lock, &irql);
    if (IsMonitoring(monitor)) {
      Enqueue(monitor, &records[i]);
      ++monitor->status.submitted;
      status = STATUS_SUCCESS;
    }
    KeReleaseSpinLock(&monitor->lock, irql);
    DeliverAll(monitor);
  }
  return status;
}

NTSTATUS MonitorFlood(Monitor* monitor, const void* input, ULONG length) {
  const OstrelLabFlood* flood = input;
  NTSTATUS status = STATUS_DEVICE_NOT_READY;
  KIRQL irql;
  if (length != sizeof(*flood) || flood->ports == 0 || flood->ports > INT32_MAX)
    return STATUS_INVALID_PARAMETER;
  KeAcquireSpinLock(&monitor->lock, &irql);
  if (IsMonitoring(monitor)) {
    monitor->flood = *flood;
    monitor->floodMade = 0;
    status = STATUS_SUCCESS;
  }
  KeReleaseSpinLock(&monitor->lock, irql);
  DeliverAll(monitor);
  return status;
}

void MonitorReadStatus(Monitor* monitor, OstrelLabNetworkStatus* status) {
  KIRQL irql;
  KeAcquireSpinLock(&monitor->lock, &irql);
  *status = monitor->status;
  status->pendingRequests = monitor->reads.count;
  status->floodRemaining = monitor->flood.count;
  status->cancelled = monitor->reads.cancelled;
  KeReleaseSpinLock(&monitor->lock, irql);
}

NTSTATUS MonitorReadProcessList(Monitor* monitor, uint32_t offset, void* output, ULONG length) {
  KIRQL irql;
  NTSTATUS status = STATUS_NO_MORE_ENTRIES;
  if (offset > sizeof(OstrelLabConfiguration) || length > sizeof(OstrelLabConfiguration) - offset) {
    return STATUS_INVALID_PARAMETER;
  }
  KeAcquireSpinLock(&monitor->lock, &irql);
  if (monitor->processList != NULL) {
    RtlCopyMemory(output, (const uint8_t*)monitor->processList + offset, length);
    status = STATUS_SUCCESS;
  }
  KeReleaseSpinLock(&monitor->lock, irql);
  return status;
}

static void Forget(Monitor* monitor, BOOLEAN unloading) {
  OstrelLabConfiguration* old;
  OstrelLabNetworkStatus fresh;
  KIRQL irql;
  RtlZeroMemory(&fresh, sizeof(fresh));
  KeAcquireSpinLock(&monitor->lock, &irql);
  if (unloading) monitor->unloading = TRUE;
  DropQueue(monitor);
  fresh.enabled = monitor->status.enabled;
  fresh.handles = monitor->status.handles;
  monitor->status = fresh;
  monitor->reads.cancelled = 0;
  old = monitor->processList;
  monitor->processList = NULL;
  KeReleaseSpinLock(&monitor->lock, irql);
  if (old != NULL) ExFreePoolWithTag(old, POOL_TAG);
}

void MonitorReset(Monitor* monitor) {
  Forget(monitor, FALSE);
}

void MonitorShutDown(Monitor* monitor) {
  Forget(monitor, TRUE);
  EndReads(monitor, NULL);
}
