/* What travels between the library, the stand-in network driver and the scenario player. */
#ifndef OSTREL_LAB_WIRE_NETWORK_WIRE_H
#define OSTREL_LAB_WIRE_NETWORK_WIRE_H

#include "configuration_wire.h"

/* ---- The driver's device, as the library sees it ---- */

#define OSTREL_LAB_NETWORK_DEVICE L"\\Device\\OstrelNWFilter"
#define OSTREL_LAB_NETWORK_LINK L"\\??\\OstrelNWFilter"
#define OSTREL_LAB_NETWORK_PATH L"\\\\.\\OstrelNWFilter"

#define OSTREL_LAB_NETWORK_ENABLE 0x120004u       /* in: OstrelLabEnable */
#define OSTREL_LAB_NETWORK_READ 0x222004u         /* out: OstrelLabPacketRecord; pends */
#define OSTREL_LAB_NETWORK_PROCESS_LIST 0x222008u /* in: OstrelLabConfiguration, in one piece */

/* As many read requests as the library keeps waiting. */
#define OSTREL_LAB_NETWORK_READ_REQUESTS 63u

typedef struct OstrelLabEnable {
  uint32_t enable; /* 1 */
  uint32_t reserved;
} OstrelLabEnable;
OSTREL_LAB_HOLDS(sizeof(OstrelLabEnable) == 8);

#define OSTREL_LAB_IPV4 1u
#define OSTREL_LAB_IPV6 2u

typedef struct OstrelLabPacketRecord {
  uint64_t bytes;
  uint32_t ipv4; /* 192.0.2.1 is 0xC0000201 */
  int32_t port;
  uint8_t isUpload;
  uint8_t paddingAfterIsUpload[7];
  uint32_t processId;
  uint32_t paddingAfterProcessId;
  uint64_t time;    /* milliseconds since 1970-01-01 UTC */
  uint8_t ipv6[16]; /* in network order */
  uint32_t ipVersion;
  uint32_t trailingPadding;
} OstrelLabPacketRecord;
OSTREL_LAB_HOLDS(sizeof(OstrelLabPacketRecord) == 64);
OSTREL_LAB_HOLDS(offsetof(OstrelLabPacketRecord, bytes) == 0);
OSTREL_LAB_HOLDS(offsetof(OstrelLabPacketRecord, ipv4) == 8);
OSTREL_LAB_HOLDS(offsetof(OstrelLabPacketRecord, port) == 12);
OSTREL_LAB_HOLDS(offsetof(OstrelLabPacketRecord, isUpload) == 16);
OSTREL_LAB_HOLDS(offsetof(OstrelLabPacketRecord, processId) == 24);
OSTREL_LAB_HOLDS(offsetof(OstrelLabPacketRecord, time) == 32);
OSTREL_LAB_HOLDS(offsetof(OstrelLabPacketRecord, ipv6) == 40);
OSTREL_LAB_HOLDS(offsetof(OstrelLabPacketRecord, ipVersion) == 56);

/* ---- The player's device ---- */

#define OSTREL_LAB_NETWORK_PLAYER_DEVICE L"\\Device\\OstrelNWFilterPlayer"
#define OSTREL_LAB_NETWORK_PLAYER_LINK L"\\??\\OstrelNWFilterPlayer"
#define OSTREL_LAB_NETWORK_PLAYER_PATH L"\\\\.\\OstrelNWFilterPlayer"

#define OSTREL_LAB_NETWORK_PLAYER_SUBMIT \
  OSTREL_LAB_CONTROL_CODE(0x930) /* in: OstrelLabPacketRecord, 1 or more */
#define OSTREL_LAB_NETWORK_PLAYER_FLOOD OSTREL_LAB_CONTROL_CODE(0x931)  /* in: OstrelLabFlood */
#define OSTREL_LAB_NETWORK_PLAYER_STATUS OSTREL_LAB_CONTROL_CODE(0x932) /* out: OstrelLabNetworkStatus */
/* in: uint32_t, an offset; out: that part of the newest process list; fails with "no more entries" */
#define OSTREL_LAB_NETWORK_PLAYER_PROCESS_LIST OSTREL_LAB_CONTROL_CODE(0x933)
#define OSTREL_LAB_NETWORK_PLAYER_RESET OSTREL_LAB_CONTROL_CODE(0x934)

#define OSTREL_LAB_NETWORK_QUEUE_CAPACITY 4096u

/* Record i of a flood, counted from 0, is `first` with its bytes grown by i * `bytesStep`, its time by
 * i * `timeStep`, and its port by i modulo `ports`. */
typedef struct OstrelLabFlood {
  uint64_t count; /* 0 ends a flood */
  uint64_t bytesStep;
  uint64_t timeStep;
  uint32_t ports; /* 1 or more */
  uint32_t reserved;
  OstrelLabPacketRecord first;
} OstrelLabFlood;
OSTREL_LAB_HOLDS(sizeof(OstrelLabFlood) == 96);

typedef struct OstrelLabNetworkStatus {
  uint32_t enabled;         /* by a handle that is still open */
  uint32_t handles;         /* open on the library's device */
  uint32_t pendingRequests; /* read requests that wait for a record */
  uint32_t queued;          /* records that wait for a read request */
  uint64_t floodRemaining;  /* records that a flood has still to make */
  uint64_t enables;
  uint64_t badEnables; /* wrong length or value */
  uint64_t reads;      /* read requests taken */
  uint64_t submitted;
  uint64_t flooded;
  uint64_t completed; /* read requests that got a record */
  uint64_t
      dropped; /* records for which the queue had no room, or that were queued when the last handle closed */
  uint64_t cancelled; /* read requests that ended without a record */
  uint64_t processLists;
  uint64_t badProcessLists; /* wrong length, or a code other than 7 */
} OstrelLabNetworkStatus;
OSTREL_LAB_HOLDS(sizeof(OstrelLabNetworkStatus) == 104);

#endif
