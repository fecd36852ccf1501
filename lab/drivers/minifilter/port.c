#include "port.h"

#include "device.h"

#define POOL_TAG 0x4C74734Fu /* "OstL" */
#define UNLOAD_WAIT_SECONDS 5

/* What a handle of the port device has become; kept in FsContext. */
#define CLIENT_OF_NOTIFICATION_PORT ((void*)1)
#define CLIENT_OF_CONTROL_PORT ((void*)2)

typedef struct QueuedMessage {
  LIST_ENTRY entry;
  OstrelLabEventMessage message;
} QueuedMessage;

void PortInitialize(Port* port) {
  RtlZeroMemory(port, sizeof(*port));
  KeInitializeSpinLock(&port->lock);
  InitializeListHead(&port->queued);
  InitializeListHead(&port->outstanding);
  RequestQueueInitialize(&port->waiting, &port->lock);
  KeInitializeEvent(&port->drained, NotificationEvent, TRUE);
  port->nextMessageId = 1;
}

/* ---- Below: helpers that need the lock held ---- */

static void UpdateDrained(Port* port) {
  if (port->status.queued == 0 && port->status.outstanding == 0) {
    KeSetEvent(&port->drained, IO_NO_INCREMENT, FALSE);
  } else {
    KeClearEvent(&port->drained);
  }
}

static uint32_t FreeMessages(PLIST_ENTRY list) {
  uint32_t count = 0;
  while (!IsListEmpty(list)) {
    PLIST_ENTRY entry = RemoveHeadList(list);
    ExFreePoolWithTag(CONTAINING_RECORD(entry, QueuedMessage, entry), POOL_TAG);
    ++count;
  }
  return count;
}

static void AbandonMessages(Port* port) {
  port->status.abandoned += FreeMessages(&port->queued);
  port->status.abandoned += FreeMessages(&port->outstanding);
  port->status.queued = 0;
  port->status.outstanding = 0;
  UpdateDrained(port);
}

static void ForgetClient(Port* port) {
  port->client = NULL;
  port->status.clientConnected = 0;
  AbandonMessages(port);
}

static void Deliver(Port* port, PIRP request) {
  PLIST_ENTRY entry = RemoveHeadList(&port->queued);
  QueuedMessage* next = CONTAINING_RECORD(entry, QueuedMessage, entry);
  RtlCopyMemory(request->AssociatedIrp.SystemBuffer, &next->message, sizeof(next->message));
  InsertTailList(&port->outstanding, entry);
  --port->status.queued;
  ++port->status.outstanding;
  ++port->status.delivered;
}

static void Enqueue(Port* port, QueuedMessage* message, const OstrelLabEvent* event) {
  RtlZeroMemory(&message->message, sizeof(message->message));
  message->message.replyLength = sizeof(OstrelLabAcknowledgement);
  message->message.messageId = port->nextMessageId++;
  message->message.event = *event;
  InsertTailList(&port->queued, &message->entry);
  ++port->status.queued;
  UpdateDrained(port);
}

static QueuedMessage* FindOutstanding(Port* port, uint64_t messageId) {
  for (PLIST_ENTRY entry = port->outstanding.Flink; entry != &port->outstanding; entry = entry->Flink) {
    QueuedMessage* message = CONTAINING_RECORD(entry, QueuedMessage, entry);
    if (message->message.messageId == messageId) return message;
  }
  return NULL;
}

static BOOLEAN IsQueued(const Port* port, uint64_t messageId) {
  if (IsListEmpty(&port->queued)) return FALSE;
  /* Ids grow along the queue, so everything from its head on has not been delivered yet. */
  return messageId >= CONTAINING_RECORD(port->queued.Flink, QueuedMessage, entry)->message.messageId;
}

/* ---- Above: helpers that need the lock held ---- */

/* Brings queued messages and waiting requests together. */
static void DeliverAll(Port* port) {
  for (;;) {
    KIRQL irql;
    PIRP request = NULL;
    KeAcquireSpinLock(&port->lock, &irql);
    if (!IsListEmpty(&port->queued)) request = RequestQueueTake(&port->waiting);
    if (request != NULL) Deliver(port, request);
    KeReleaseSpinLock(&port->lock, irql);
    if (request == NULL) return;
    CompleteRequest(request, STATUS_SUCCESS, sizeof(OstrelLabEventMessage));
  }
}

static void EndWaitingRequests(Port* port) {
  for (;;) {
    KIRQL irql;
    PIRP request;
    KeAcquireSpinLock(&port->lock, &irql);
    request = RequestQueueTake(&port->waiting);
    KeReleaseSpinLock(&port->lock, irql);
    if (request == NULL) return;
    CompleteRequest(request, STATUS_PORT_DISCONNECTED, 0);
  }
}

static BOOLEAN IsClient(PFILE_OBJECT file, const void* kind) {
  return file->FsContext == kind;
}

static BOOLEAN NamesPort(const OstrelLabConnect* connect, const WCHAR* name) {
  UNICODE_STRING wanted;
  UNICODE_STRING given;
  RtlInitUnicodeString(&wanted, name);
  RtlInitUnicodeString(&given, (const WCHAR*)connect->portName);
  return RtlEqualUnicodeString(&wanted, &given, TRUE);
}

static NTSTATUS CheckContext(const OstrelLabConnect* connect, OstrelLabConnectionContext* context) {
  if (connect->contextLength != sizeof(*context)) return STATUS_INVALID_PARAMETER;
  RtlCopyMemory(context, connect->context, sizeof(*context));
  if (context->protocolCode != OSTREL_LAB_PROTOCOL_CODE) return STATUS_INVALID_PARAMETER;
  if (context->processId != (uint32_t)(ULONG_PTR)PsGetCurrentProcessId()) return STATUS_INVALID_PARAMETER;
  return STATUS_SUCCESS;
}

static NTSTATUS ConnectNotificationPort(Port* port, PFILE_OBJECT file, const OstrelLabConnect* connect) {
  OstrelLabConnectionContext context;
  KIRQL irql;
  NTSTATUS status = CheckContext(connect, &context);
  KeAcquireSpinLock(&port->lock, &irql);
  if (NT_SUCCESS(status) && port->client != NULL) status = STATUS_CONNECTION_COUNT_LIMIT;
  if (NT_SUCCESS(status) && port->unloading) status = STATUS_DELETE_PENDING;
  if (NT_SUCCESS(status)) {
    port->client = file;
    file->FsContext = CLIENT_OF_NOTIFICATION_PORT;
    port->status.client = context;
    port->status.clientConnected = 1;
    ++port->status.connections;
  } else {
    ++port->status.refusedConnections;
  }
  KeReleaseSpinLock(&port->lock, irql);
  return status;
}

NTSTATUS PortConnect(Port* port, PFILE_OBJECT file, const void* input, ULONG length) {
  const OstrelLabConnect* connect = input;
  if (length != sizeof(*connect) || file->FsContext != NULL) return STATUS_INVALID_PARAMETER;
  if (connect->portName[OSTREL_LAB_PORT_NAME_CAPACITY - 1] != 0) return STATUS_OBJECT_NAME_INVALID;
  if (NamesPort(connect, OSTREL_LAB_NOTIFICATION_PORT)) return ConnectNotificationPort(port, file, connect);
  if (!NamesPort(connect, OSTREL_LAB_CONTROL_PORT)) return STATUS_OBJECT_NAME_NOT_FOUND;
  if (connect->contextLength != 0) return STATUS_INVALID_PARAMETER;
  file->FsContext = CLIENT_OF_CONTROL_PORT;
  return STATUS_SUCCESS;
}

NTSTATUS PortGetMessage(Port* port, PFILE_OBJECT file, PIRP request, ULONG outputLength) {
  KIRQL irql;
  NTSTATUS status;
  if (!IsClient(file, CLIENT_OF_NOTIFICATION_PORT)) return STATUS_INVALID_DEVICE_REQUEST;
  if (outputLength < sizeof(OstrelLabEventMessage)) return STATUS_BUFFER_TOO_SMALL;
  KeAcquireSpinLock(&port->lock, &irql);
  status = port->client == file ? RequestQueuePark(&port->waiting, request) : STATUS_PORT_DISCONNECTED;
  KeReleaseSpinLock(&port->lock, irql);
  if (status == STATUS_PENDING) DeliverAll(port);
  return status;
}

static NTSTATUS Acknowledge(Port* port, const OstrelLabAcknowledgement* acknowledgement) {
  const uint64_t id = acknowledgement->messageId;
  QueuedMessage* message = FindOutstanding(port, id);
  if (message == NULL) {
    if (id == 0 || id >= port->nextMessageId || IsQueued(port, id)) {
      ++port->status.badAcknowledgements;
    } else {
      ++port->status.doubleAcknowledgements;
    }
    return STATUS_FLT_NO_WAITER_FOR_REPLY;
  }
  if (acknowledgement->status != 0) {
    ++port->status.badAcknowledgements;
    return STATUS_INVALID_PARAMETER;
  }
  RemoveEntryList(&message->entry);
  ExFreePoolWithTag(message, POOL_TAG);
  --port->status.outstanding;
  ++port->status.acknowledged;
  UpdateDrained(port);
  return STATUS_SUCCESS;
}

NTSTATUS PortReply(Port* port, PFILE_OBJECT file, const void* input, ULONG length) {
  KIRQL irql;
  NTSTATUS status;
  if (!IsClient(file, CLIENT_OF_NOTIFICATION_PORT)) return STATUS_INVALID_DEVICE_REQUEST;
  KeAcquireSpinLock(&port->lock, &irql);
  if (port->client != file) {
    status = STATUS_PORT_DISCONNECTED;
  } else if (length != sizeof(OstrelLabAcknowledgement)) {
    ++port->status.badAcknowledgements;
    status = STATUS_INVALID_PARAMETER;
  } else {
    status = Acknowledge(port, input);
  }
  KeReleaseSpinLock(&port->lock, irql);
  return status;
}

/* With the lock held. Gives back the oldest kept message when the shelf was full, for the caller to free. */
static OstrelLabConfiguration* KeepConfiguration(Port* port, OstrelLabConfiguration* configuration) {
  const uint32_t slot = (uint32_t)(port->status.configurations % OSTREL_LAB_KEPT_CONFIGURATIONS);
  OstrelLabConfiguration* oldest = port->configurations[slot];
  port->configurations[slot] = configuration;
  ++port->status.configurations;
  if (oldest == NULL) ++port->status.keptConfigurations;
  return oldest;
}

/* With the lock held. What has arrived so far of a client's message is kept in its FsContext2. Gives back
 * what the caller is to free. */
static NTSTATUS TakePart(Port* port, PFILE_OBJECT file, const OstrelLabPart* part, ULONG length,
                         OstrelLabConfiguration** toFree) {
  OstrelLabConfiguration* message = file->FsContext2;
  if (message == NULL || part->offset > sizeof(*message) || length > sizeof(*message) - part->offset) {
    return STATUS_INVALID_PARAMETER;
  }
  RtlCopyMemory((uint8_t*)message + part->offset, part + 1, length);
  if (part->offset + length < sizeof(*message)) return STATUS_SUCCESS;
  file->FsContext2 = NULL;
  if (message->code != OSTREL_LAB_PROTOCOL_CODE) {
    ++port->status.badConfigurations;
    *toFree = message;
    return STATUS_INVALID_PARAMETER;
  }
  *toFree = KeepConfiguration(port, message);
  return STATUS_SUCCESS;
}

/* Replaces what a client has begun to send; a null pointer ends it. */
static void BeginMessage(Port* port, PFILE_OBJECT file, OstrelLabConfiguration* fresh) {
  OstrelLabConfiguration* old;
  KIRQL irql;
  KeAcquireSpinLock(&port->lock, &irql);
  old = file->FsContext2;
  file->FsContext2 = fresh;
  KeReleaseSpinLock(&port->lock, irql);
  if (old != NULL) ExFreePoolWithTag(old, POOL_TAG);
}

static NTSTATUS RefuseMessage(Port* port) {
  KIRQL irql;
  KeAcquireSpinLock(&port->lock, &irql);
  ++port->status.badConfigurations;
  KeReleaseSpinLock(&port->lock, irql);
  return STATUS_INVALID_PARAMETER;
}

NTSTATUS PortSend(Port* port, PFILE_OBJECT file, const void* input, ULONG length) {
  const OstrelLabPart* part = input;
  OstrelLabConfiguration* toFree = NULL;
  KIRQL irql;
  NTSTATUS status;
  if (!IsClient(file, CLIENT_OF_CONTROL_PORT)) return STATUS_INVALID_DEVICE_REQUEST;
  if (length < sizeof(*part) || part->totalLength != sizeof(OstrelLabConfiguration))
    return RefuseMessage(port);
  if (part->offset == 0) {
    OstrelLabConfiguration* fresh = ExAllocatePoolWithTag(NonPagedPool, sizeof(*fresh), POOL_TAG);
    if (fresh == NULL) return STATUS_INSUFFICIENT_RESOURCES;
    RtlZeroMemory(fresh, sizeof(*fresh));
    BeginMessage(port, file, fresh);
  }
  KeAcquireSpinLock(&port->lock, &irql);
  status = TakePart(port, file, part, length - (ULONG)sizeof(*part), &toFree);
  KeReleaseSpinLock(&port->lock, irql);
  if (toFree != NULL) ExFreePoolWithTag(toFree, POOL_TAG);
  return status;
}

void PortDisconnect(Port* port, PFILE_OBJECT file) {
  KIRQL irql;
  BOOLEAN wasClient;
  KeAcquireSpinLock(&port->lock, &irql);
  wasClient = port->client == file;
  if (wasClient) ForgetClient(port);
  KeReleaseSpinLock(&port->lock, irql);
  if (wasClient) EndWaitingRequests(port);
  BeginMessage(port, file, NULL);
}

/* Allocates outside the lock; the list then holds exactly `count` messages, or none after a failure. */
static NTSTATUS AllocateMessages(PLIST_ENTRY list, uint32_t count) {
  InitializeListHead(list);
  for (uint32_t i = 0; i < count; ++i) {
    QueuedMessage* message = ExAllocatePoolWithTag(NonPagedPool, sizeof(*message), POOL_TAG);
    if (message == NULL) {
      FreeMessages(list);
      return STATUS_INSUFFICIENT_RESOURCES;
    }
    InsertTailList(list, &message->entry);
  }
  return STATUS_SUCCESS;
}

NTSTATUS PortSubmit(Port* port, const void* input, ULONG length) {
  const OstrelLabEvent* events = input;
  const uint32_t count = length / sizeof(*events);
  LIST_ENTRY fresh;
  KIRQL irql;
  NTSTATUS status;
  if (count == 0 || length % sizeof(*events) != 0) return STATUS_INVALID_PARAMETER;
  if (count > OSTREL_LAB_QUEUE_CAPACITY) return STATUS_QUOTA_EXCEEDED;
  status = AllocateMessages(&fresh, count);
  if (!NT_SUCCESS(status)) return status;
  KeAcquireSpinLock(&port->lock, &irql);
  if (port->client == NULL || port->unloading) {
    status = STATUS_PORT_DISCONNECTED;
  } else if (port->status.queued + port->status.outstanding + count > OSTREL_LAB_QUEUE_CAPACITY) {
    status = STATUS_QUOTA_EXCEEDED;
  } else {
    for (uint32_t i = 0; i < count; ++i) {
      PLIST_ENTRY entry = RemoveHeadList(&fresh);
      Enqueue(port, CONTAINING_RECORD(entry, QueuedMessage, entry), &events[i]);
    }
    port->status.submitted += count;
  }
  KeReleaseSpinLock(&port->lock, irql);
  FreeMessages(&fresh);
  DeliverAll(port);
  return status;
}

void PortReadStatus(Port* port, OstrelLabStatus* status) {
  KIRQL irql;
  KeAcquireSpinLock(&port->lock, &irql);
  *status = port->status;
  status->waitingRequests = port->waiting.count;
  KeReleaseSpinLock(&port->lock, irql);
}

NTSTATUS PortReadConfiguration(Port* port, const OstrelLabConfigurationRequest* request, void* output,
                               ULONG length) {
  const OstrelLabConfigurationRequest wanted = *request; /* the output may lie over it */
  KIRQL irql;
  NTSTATUS status = STATUS_NO_MORE_ENTRIES;
  if (wanted.offset > sizeof(OstrelLabConfiguration) ||
      length > sizeof(OstrelLabConfiguration) - wanted.offset) {
    return STATUS_INVALID_PARAMETER;
  }
  KeAcquireSpinLock(&port->lock, &irql);
  if (wanted.number < port->status.configurations &&
      wanted.number >= port->status.configurations - port->status.keptConfigurations) {
    const uint8_t* kept =
        (const uint8_t*)port->configurations[wanted.number % OSTREL_LAB_KEPT_CONFIGURATIONS];
    RtlCopyMemory(output, kept + wanted.offset, length);
    status = STATUS_SUCCESS;
  }
  KeReleaseSpinLock(&port->lock, irql);
  return status;
}

/* With the lock held: the player may be reading one. */
static void FreeConfigurations(Port* port) {
  for (uint32_t i = 0; i < OSTREL_LAB_KEPT_CONFIGURATIONS; ++i) {
    if (port->configurations[i] != NULL) ExFreePoolWithTag(port->configurations[i], POOL_TAG);
    port->configurations[i] = NULL;
  }
  port->status.configurations = 0;
  port->status.keptConfigurations = 0;
}

void PortReset(Port* port) {
  KIRQL irql;
  OstrelLabStatus fresh;
  RtlZeroMemory(&fresh, sizeof(fresh));
  KeAcquireSpinLock(&port->lock, &irql);
  AbandonMessages(port);
  FreeConfigurations(port);
  fresh.clientConnected = port->status.clientConnected;
  fresh.client = port->status.client;
  port->status = fresh;
  KeReleaseSpinLock(&port->lock, irql);
}

static void SendUnloadNotice(Port* port) {
  OstrelLabEvent notice;
  QueuedMessage* message = ExAllocatePoolWithTag(NonPagedPool, sizeof(*message), POOL_TAG);
  KIRQL irql;
  RtlZeroMemory(&notice, sizeof(notice));
  notice.unloadNotice = OSTREL_LAB_UNLOAD_NOTICE;
  KeAcquireSpinLock(&port->lock, &irql);
  port->unloading = TRUE;
  if (port->client != NULL && message != NULL) {
    Enqueue(port, message, &notice);
    message = NULL;
  }
  KeReleaseSpinLock(&port->lock, irql);
  if (message != NULL) ExFreePoolWithTag(message, POOL_TAG);
  DeliverAll(port);
}

void PortShutDown(Port* port) {
  LARGE_INTEGER limit;
  KIRQL irql;
  limit.QuadPart = -10000000LL * UNLOAD_WAIT_SECONDS;
  SendUnloadNotice(port);
  (void)KeWaitForSingleObject(&port->drained, Executive, KernelMode, FALSE, &limit);
  /* Without a look at the client's file object, which goes when the client closes it meanwhile. */
  KeAcquireSpinLock(&port->lock, &irql);
  ForgetClient(port);
  FreeConfigurations(port);
  KeReleaseSpinLock(&port->lock, irql);
  EndWaitingRequests(port);
}
