#ifndef OSTREL_FILTER_PORT_MESSAGES_H
#define OSTREL_FILTER_PORT_MESSAGES_H

// What travels over the minifilter's two ports, byte for byte. Little-endian; texts are UTF-16.

#include <cstddef>
#include <cstdint>

namespace ostrel {

constexpr std::uint32_t PROTOCOL_CODE = 7;

// Handed over when the notification port is opened.
struct ConnectionContext {
  std::uint32_t hostProcessId;
  std::uint32_t code;  // PROTOCOL_CODE
};
static_assert(sizeof(ConnectionContext) == 8);
static_assert(offsetof(ConnectionContext, code) == 4);

// Driver to library.
struct EventMessage {
  std::uint32_t replyLength;
  std::uint32_t headerPadding;
  std::uint64_t messageId;
  std::uint32_t processId;
  std::uint32_t unloadNotice;  // 1: the driver unloads and sends nothing more
  std::uint64_t eventTime;     // milliseconds since 1970
  std::int32_t eventType;      // FILE_EVENT_TYPE, or a value of a newer driver
  std::int32_t detail;         // traced only
  std::uint8_t streamFlag;     // 0 in a write: the name carries a stream suffix behind its last ':'
  std::uint8_t padding[3];
  std::uint32_t deviceSourceType;  // DEVICE_SOURCE_TYPE
  char16_t fileName[512];          // device form; a driver that fills it leaves no terminator
  std::uint32_t readSize;          // bytes
  std::uint32_t tailPadding;
};
static_assert(sizeof(EventMessage) == 1080);
static_assert(offsetof(EventMessage, messageId) == 8);
static_assert(offsetof(EventMessage, processId) == 16);
static_assert(offsetof(EventMessage, unloadNotice) == 20);
static_assert(offsetof(EventMessage, eventTime) == 24);
static_assert(offsetof(EventMessage, eventType) == 32);
static_assert(offsetof(EventMessage, detail) == 36);
static_assert(offsetof(EventMessage, streamFlag) == 40);
static_assert(offsetof(EventMessage, deviceSourceType) == 44);
static_assert(offsetof(EventMessage, fileName) == 48);
static_assert(offsetof(EventMessage, readSize) == 1072);

// Library to driver, for every event message and for the unload notice.
struct Acknowledgement {
  std::int32_t status;  // always 0
  std::uint32_t padding;
  std::uint64_t messageId;
};
static_assert(sizeof(Acknowledgement) == 16);
static_assert(offsetof(Acknowledgement, messageId) == 8);

constexpr std::size_t WATCHED_PROCESS_ID_SLOTS = 512;
constexpr std::size_t PROCESS_NAME_SLOTS = 64;
constexpr std::size_t PROCESS_NAME_CAPACITY = 32;
constexpr std::size_t EXCLUDED_PATH_SLOTS = 200;
constexpr std::size_t CLOUD_PATH_SLOTS = 10;
constexpr std::size_t PATH_SLOT_CAPACITY = 300;

// Library to driver over the control port: what to watch.
struct DetectionMessage {
  std::uint32_t code;  // PROTOCOL_CODE
  std::uint32_t hostProcessId;
  std::uint32_t processIds[WATCHED_PROCESS_ID_SLOTS];
  char16_t processNames[PROCESS_NAME_SLOTS][PROCESS_NAME_CAPACITY];
  char16_t excludedPaths[EXCLUDED_PATH_SLOTS][PATH_SLOT_CAPACITY];
  char16_t cloudPaths[CLOUD_PATH_SLOTS][PATH_SLOT_CAPACITY];
  char16_t cloudExclusionPaths[CLOUD_PATH_SLOTS][PATH_SLOT_CAPACITY];
  std::uint32_t processIdCount;
  std::uint32_t processNameCount;
  std::uint32_t excludedPathCount;
  std::uint32_t cloudPathCount;           // cloud-drive messages only
  std::uint32_t cloudExclusionPathCount;  // cloud-drive messages only
  std::uint8_t driverOption;
  std::uint8_t enabled;
  std::uint8_t kind;  // DetectionKind
  std::uint8_t padding;
};
static_assert(sizeof(DetectionMessage) == 138176);
static_assert(offsetof(DetectionMessage, hostProcessId) == 4);
static_assert(offsetof(DetectionMessage, processIds) == 8);
static_assert(offsetof(DetectionMessage, processNames) == 2056);
static_assert(offsetof(DetectionMessage, excludedPaths) == 6152);
static_assert(offsetof(DetectionMessage, cloudPaths) == 126152);
static_assert(offsetof(DetectionMessage, cloudExclusionPaths) == 132152);
static_assert(offsetof(DetectionMessage, processIdCount) == 138152);
static_assert(offsetof(DetectionMessage, processNameCount) == 138156);
static_assert(offsetof(DetectionMessage, excludedPathCount) == 138160);
static_assert(offsetof(DetectionMessage, cloudPathCount) == 138164);
static_assert(offsetof(DetectionMessage, cloudExclusionPathCount) == 138168);
static_assert(offsetof(DetectionMessage, driverOption) == 138172);
static_assert(offsetof(DetectionMessage, enabled) == 138173);
static_assert(offsetof(DetectionMessage, kind) == 138174);

enum class DetectionKind : std::uint8_t { CloudDrive = 0, Activity = 1 };

}  // namespace ostrel

#endif
