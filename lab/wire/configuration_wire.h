/* The configuration message, which both drivers take: which processes to watch, which paths to leave out,
 * which switches are on. And what the stand-ins of both drivers have in common.
 *
 * The messages of the drivers are written down here from their byte tables and share nothing with the
 * library's own declarations: when the two disagree by a byte, a scenario fails.
 * All integers are little-endian, all text is UTF-16LE. */
#ifndef OSTREL_LAB_WIRE_CONFIGURATION_WIRE_H
#define OSTREL_LAB_WIRE_CONFIGURATION_WIRE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define OSTREL_LAB_HOLDS(condition) static_assert(condition, #condition)
#else
#define OSTREL_LAB_HOLDS(condition) _Static_assert(condition, #condition)
#endif

/* Device type 0x22 (unknown), buffered, any access. */
#define OSTREL_LAB_CONTROL_CODE(function) ((0x22u << 16) | ((uint32_t)(function) << 2))

/* Bytes of one request between the lab's own programs and drivers. Wine passes a request's bytes through a
 * pipe of 64 KiB and ends the whole process when a larger request is interrupted half-way, as a debugger or a
 * paused machine does. */
#define OSTREL_LAB_PART_CAPACITY 32768u

/* Constant of the connection context and of every configuration message. */
#define OSTREL_LAB_PROTOCOL_CODE 7u

#define OSTREL_LAB_PROCESS_ID_SLOTS 512
#define OSTREL_LAB_PROCESS_NAME_SLOTS 64
#define OSTREL_LAB_PROCESS_NAME_LENGTH 32
#define OSTREL_LAB_EXCLUDED_PATH_SLOTS 200
#define OSTREL_LAB_CLOUD_PATH_SLOTS 10
#define OSTREL_LAB_PATH_LENGTH 300

#define OSTREL_LAB_KIND_CLOUD_DRIVE 0u
#define OSTREL_LAB_KIND_ACTIVITY 1u

typedef struct OstrelLabConfiguration {
  uint32_t code;
  uint32_t hostProcessId;
  uint32_t processIds[OSTREL_LAB_PROCESS_ID_SLOTS];
  uint16_t processNames[OSTREL_LAB_PROCESS_NAME_SLOTS][OSTREL_LAB_PROCESS_NAME_LENGTH];
  uint16_t excludedPaths[OSTREL_LAB_EXCLUDED_PATH_SLOTS][OSTREL_LAB_PATH_LENGTH];
  uint16_t cloudPaths[OSTREL_LAB_CLOUD_PATH_SLOTS][OSTREL_LAB_PATH_LENGTH];
  uint16_t cloudExclusions[OSTREL_LAB_CLOUD_PATH_SLOTS][OSTREL_LAB_PATH_LENGTH];
  uint32_t processIdCount;
  uint32_t processNameCount;
  uint32_t excludedPathCount;
  uint32_t cloudPathCount;
  uint32_t cloudExclusionCount;
  uint8_t driverOption;
  uint8_t enabled;
  uint8_t kind;
  uint8_t padding;
} OstrelLabConfiguration;
OSTREL_LAB_HOLDS(sizeof(OstrelLabConfiguration) == 138176);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, processIds) == 8);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, processNames) == 2056);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, excludedPaths) == 6152);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, cloudPaths) == 126152);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, cloudExclusions) == 132152);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, processIdCount) == 138152);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, processNameCount) == 138156);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, excludedPathCount) == 138160);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, cloudPathCount) == 138164);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, cloudExclusionCount) == 138168);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, driverOption) == 138172);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, enabled) == 138173);
OSTREL_LAB_HOLDS(offsetof(OstrelLabConfiguration, kind) == 138174);

typedef struct OstrelLabConfigurationRequest {
  uint64_t number; /* counted from 0 since the driver's start or last reset */
  uint32_t offset;
  uint32_t reserved;
} OstrelLabConfigurationRequest;
OSTREL_LAB_HOLDS(sizeof(OstrelLabConfigurationRequest) == 16);

#endif
