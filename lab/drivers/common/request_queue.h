/* Requests that wait for something to be completed with, oldest first, and that their senders may cancel at
 * any time.
 *
 * The owner's spin lock guards the queue; every function here needs it held, and no request is completed
 * while it is. */
#ifndef OSTREL_LAB_DRIVERS_COMMON_REQUEST_QUEUE_H
#define OSTREL_LAB_DRIVERS_COMMON_REQUEST_QUEUE_H

#include <ntddk.h>
#include <stdint.h>

typedef struct RequestQueue {
  KSPIN_LOCK* lock;
  LIST_ENTRY waiting; /* IRP.Tail.Overlay.ListEntry */
  uint32_t count;
  uint64_t cancelled; /* ended without what they waited for */
} RequestQueue;

void RequestQueueInitialize(RequestQueue* queue, KSPIN_LOCK* lock);

/* STATUS_PENDING: the request belongs to the queue. STATUS_CANCELLED: it was cancelled before it could. */
NTSTATUS RequestQueuePark(RequestQueue* queue, PIRP request);

/* The oldest request that nobody is cancelling, or NULL. It belongs to the caller. */
PIRP RequestQueueTake(RequestQueue* queue);

/* The same, among the requests of one handle. */
PIRP RequestQueueTakeOf(RequestQueue* queue, PFILE_OBJECT file);

#endif
