/* What travels between the stand-in minifilter, the stand-in port library and the scenario player.
 *
 * The three messages of the ports are written down here from their byte tables and share nothing with the
 * library's own declarations: when the two disagree by a byte, a scenario fails.
 * All integers are little-endian, all text is UTF-16LE. */
#ifndef OSTREL_LAB_WIRE_MINIFILTER_WIRE_H
#define OSTREL_LAB_WIRE_MINIFILTER_WIRE_H

#include "configuration_wire.h"

/* ---- Ports ---- */

#define OSTREL_LAB_NOTIFICATION_PORT L"\\6E6F3D7A-21A2-4B5F-ABD3-5DCED10CD793"
#define OSTREL_LAB_CONTROL_PORT L"\\FB6CBA80-7A14-42C2-8697-0D4F43B3405F"

typedef struct OstrelLabConnectionContext {
  uint32_t processId;
  uint32_t protocolCode;
} OstrelLabConnectionContext;
OSTREL_LAB_HOLDS(sizeof(OstrelLabConnectionContext) == 8);

/* ---- Notification port: event message and acknowledgement ---- */

#define OSTREL_LAB_FILE_NAME_LENGTH 512
#define OSTREL_LAB_UNLOAD_NOTICE 1u

/* Everything of an event message after the header that the filter manager owns. */
typedef struct OstrelLabEvent {
  uint32_t processId;
  uint32_t unloadNotice;
  uint64_t eventTime; /* milliseconds since 1970-01-01 UTC */
  int32_t eventType;
  int32_t detail;
  uint8_t streamFlag;
  uint8_t paddingAfterStreamFlag[3];
  uint32_t deviceSourceType;
  uint16_t fileName[OSTREL_LAB_FILE_NAME_LENGTH]; /* device form */
  uint32_t readSize;
  uint8_t trailingPadding[4];
} OstrelLabEvent;

typedef struct OstrelLabEventMessage {
  uint32_t replyLength;
  uint8_t headerPadding[4];
  uint64_t messageId;
  OstrelLabEvent event;
} OstrelLabEventMessage;
OSTREL_LAB_HOLDS(sizeof(OstrelLabEvent) == 1064);
OSTREL_LAB_HOLDS(sizeof(OstrelLabEventMessage) == 1080);
OSTREL_LAB_HOLDS(offsetof(OstrelLabEventMessage, replyLength) == 0);
OSTREL_LAB_HOLDS(offsetof(OstrelLabEventMessage, messageId) == 8);
OSTREL_LAB_HOLDS(offsetof(OstrelLabEventMessage, event.processId) == 16);
OSTREL_LAB_HOLDS(offsetof(OstrelLabEventMessage, event.unloadNotice) == 20);
OSTREL_LAB_HOLDS(offsetof(OstrelLabEventMessage, event.eventTime) == 24);
OSTREL_LAB_HOLDS(offsetof(OstrelLabEventMessage, event.eventType) == 32);
OSTREL_LAB_HOLDS(offsetof(OstrelLabEventMessage, event.detail) == 36);
OSTREL_LAB_HOLDS(offsetof(OstrelLabEventMessage, event.streamFlag) == 40);
OSTREL_LAB_HOLDS(offsetof(OstrelLabEventMessage, event.deviceSourceType) == 44);
OSTREL_LAB_HOLDS(offsetof(OstrelLabEventMessage, event.fileName) == 48);
OSTREL_LAB_HOLDS(offsetof(OstrelLabEventMessage, event.readSize) == 1072);

typedef struct OstrelLabAcknowledgement {
  int32_t status;
  uint8_t padding[4];
  uint64_t messageId;
} OstrelLabAcknowledgement;
OSTREL_LAB_HOLDS(sizeof(OstrelLabAcknowledgement) == 16);
OSTREL_LAB_HOLDS(offsetof(OstrelLabAcknowledgement, messageId) == 8);

/* ---- Devices of the stand-in driver and their control codes ---- */

#define OSTREL_LAB_PORT_DEVICE L"\\Device\\OstrelFilterPort"
#define OSTREL_LAB_PORT_LINK L"\\??\\OstrelFilterPort"
#define OSTREL_LAB_PORT_PATH L"\\\\.\\OstrelFilterPort"
#define OSTREL_LAB_PLAYER_DEVICE L"\\Device\\OstrelFilterPlayer"
#define OSTREL_LAB_PLAYER_LINK L"\\??\\OstrelFilterPlayer"
#define OSTREL_LAB_PLAYER_PATH L"\\\\.\\OstrelFilterPlayer"

/* Port device. The first request on a fresh handle is CONNECT; it makes the handle a client of one port. */
#define OSTREL_LAB_PORT_CONNECT OSTREL_LAB_CONTROL_CODE(0x910) /* in: OstrelLabConnect */
#define OSTREL_LAB_PORT_GET_MESSAGE                                                                  \
  OSTREL_LAB_CONTROL_CODE(0x911)                             /* out: OstrelLabEventMessage; may pend \
                                                              */
#define OSTREL_LAB_PORT_REPLY OSTREL_LAB_CONTROL_CODE(0x912) /* in: OstrelLabAcknowledgement */
#define OSTREL_LAB_PORT_SEND OSTREL_LAB_CONTROL_CODE(0x913)  /* in: OstrelLabPart and its bytes */

/* Player device. */
#define OSTREL_LAB_PLAYER_SUBMIT OSTREL_LAB_CONTROL_CODE(0x920) /* in: one or more OstrelLabEvent */
#define OSTREL_LAB_PLAYER_STATUS OSTREL_LAB_CONTROL_CODE(0x921) /* out: OstrelLabStatus */
/* in: OstrelLabConfigurationRequest; out: the bytes asked for; fails with "no more entries" */
#define OSTREL_LAB_PLAYER_CONFIGURATION OSTREL_LAB_CONTROL_CODE(0x922)
#define OSTREL_LAB_PLAYER_RESET OSTREL_LAB_CONTROL_CODE(0x923)

/* A configuration message travels in parts, in order. */
typedef struct OstrelLabPart {
  uint32_t totalLength;
  uint32_t offset;
} OstrelLabPart;
OSTREL_LAB_HOLDS(sizeof(OstrelLabPart) == 8);

#define OSTREL_LAB_PORT_NAME_CAPACITY 64
#define OSTREL_LAB_CONTEXT_CAPACITY 64

typedef struct OstrelLabConnect {
  uint16_t portName[OSTREL_LAB_PORT_NAME_CAPACITY]; /* NUL-terminated */
  uint32_t contextLength;
  uint8_t context[OSTREL_LAB_CONTEXT_CAPACITY];
} OstrelLabConnect;
OSTREL_LAB_HOLDS(sizeof(OstrelLabConnect) == 196);

#define OSTREL_LAB_QUEUE_CAPACITY 16384u
#define OSTREL_LAB_KEPT_CONFIGURATIONS 16u

typedef struct OstrelLabStatus {
  uint32_t clientConnected;
  OstrelLabConnectionContext client; /* of the connected client, else of the last one */
  uint32_t queued;                   /* waiting for a get-message request */
  uint32_t outstanding;              /* delivered, not yet acknowledged */
  uint32_t waitingRequests;          /* get-message requests that wait for an event */
  uint32_t keptConfigurations;
  uint32_t reserved;
  uint64_t connections;
  uint64_t refusedConnections;
  uint64_t submitted;
  uint64_t delivered;
  uint64_t acknowledged;
  uint64_t badAcknowledgements;    /* wrong length, status other than 0, or an id never delivered */
  uint64_t doubleAcknowledgements; /* of a message already acknowledged */
  uint64_t abandoned;              /* queued or outstanding when the client went away */
  uint64_t configurations;
  uint64_t badConfigurations; /* wrong length, or a code other than 7 */
} OstrelLabStatus;
OSTREL_LAB_HOLDS(sizeof(OstrelLabStatus) == 112);

#endif
