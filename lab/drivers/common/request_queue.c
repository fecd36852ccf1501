#include "request_queue.h"

#include "device.h"

/* Where a waiting request remembers its queue, for its cancel routine. */
#define QUEUE_OF(request) ((request)->Tail.Overlay.DriverContext[0])

void RequestQueueInitialize(RequestQueue* queue, KSPIN_LOCK* lock) {
  queue->lock = lock;
  InitializeListHead(&queue->waiting);
  queue->count = 0;
  queue->cancelled = 0;
}

static void NTAPI CancelWaitingRequest(PDEVICE_OBJECT device, PIRP request) {
  RequestQueue* queue = QUEUE_OF(request);
  KIRQL irql;
  (void)device;
  IoReleaseCancelSpinLock(request->CancelIrql);
  KeAcquireSpinLock(queue->lock, &irql);
  if (!IsListEmpty(&request->Tail.Overlay.ListEntry)) --queue->count;
  RemoveEntryList(&request->Tail.Overlay.ListEntry);
  ++queue->cancelled;
  KeReleaseSpinLock(queue->lock, irql);
  CompleteRequest(request, STATUS_CANCELLED, 0);
}

NTSTATUS RequestQueuePark(RequestQueue* queue, PIRP request) {
  QUEUE_OF(request) = queue;
  (void)IoSetCancelRoutine(request, CancelWaitingRequest);
  if (request->Cancel && IoSetCancelRoutine(request, NULL) != NULL) {
    ++queue->cancelled;
    return STATUS_CANCELLED;
  }
  IoMarkIrpPending(request);
  InsertTailList(&queue->waiting, &request->Tail.Overlay.ListEntry);
  ++queue->count;
  return STATUS_PENDING;
}

/* A request whose cancel routine has been claimed is left self-linked, so that the cancel routine's own
 * removal does no harm. */
static BOOLEAN Claim(RequestQueue* queue, PIRP request) {
  RemoveEntryList(&request->Tail.Overlay.ListEntry);
  --queue->count;
  if (IoSetCancelRoutine(request, NULL) != NULL) return TRUE;
  InitializeListHead(&request->Tail.Overlay.ListEntry);
  return FALSE;
}

PIRP RequestQueueTake(RequestQueue* queue) {
  while (!IsListEmpty(&queue->waiting)) {
    PIRP request = CONTAINING_RECORD(queue->waiting.Flink, IRP, Tail.Overlay.ListEntry);
    if (Claim(queue, request)) return request;
  }
  return NULL;
}

PIRP RequestQueueTakeOf(RequestQueue* queue, PFILE_OBJECT file) {
  PLIST_ENTRY entry = queue->waiting.Flink;
  while (entry != &queue->waiting) {
    PIRP request = CONTAINING_RECORD(entry, IRP, Tail.Overlay.ListEntry);
    entry = entry->Flink;
    if (IoGetCurrentIrpStackLocation(request)->FileObject == file && Claim(queue, request)) return request;
  }
  return NULL;
}
