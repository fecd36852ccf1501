#ifndef OSTREL_LAB_PLAYER_SCENARIO_SCENARIO_H
#define OSTREL_LAB_PLAYER_SCENARIO_SCENARIO_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "network_address.h"

// What a scenario file says. All text is UTF-8. Processes and files are named by their index.
namespace ostrel::lab {

constexpr std::int32_t EVENT_READ = 0;
constexpr std::int32_t EVENT_WRITE = 1;
constexpr std::int32_t EVENT_NETWORK_INFO = 2;
constexpr std::int32_t EVENT_STANDARD_INFO = 3;
constexpr std::int32_t EVENT_CLOUD_DRIVE_FIRST = 4;
constexpr std::int32_t EVENT_CLOUD_DRIVE_LAST = 9;

constexpr std::uint32_t SOURCE_LOCAL = 0;
constexpr std::uint32_t SOURCE_NETWORK = 1;

constexpr bool IsCloudDriveEvent(std::int32_t type) {
  return type >= EVENT_CLOUD_DRIVE_FIRST && type <= EVENT_CLOUD_DRIVE_LAST;
}

struct ProcessEntry {
  std::string id;
  std::string image;
};

// Either a file or directory that the player makes (`path`, below the work directory, with backslashes), or a
// name that only the driver knows (`deviceName`).
struct FileEntry {
  std::string id;
  std::string path;
  std::uint64_t size = 0;
  bool isDirectory = false;
  std::string deviceName;
  std::string reportedName;  // what a detection calls a file that has only a device name
};

struct EventStep {
  std::int32_t type = EVENT_READ;
  std::size_t process = 0;
  std::size_t file = 0;
  std::string stream;
  std::uint8_t streamFlag = 1;
  std::uint32_t readSize = 0;
  std::uint32_t deviceSource = SOURCE_LOCAL;
  std::int32_t detail = 0;
  std::int64_t timeOffset = 0;  // milliseconds, relative to the player's "now"
  std::uint32_t repeat = 1;
};

struct WaitStep {
  std::uint32_t milliseconds = 0;
};

struct ExitStep {
  std::size_t process = 0;
};

struct UnloadStep {};

// One stream of a process: a remote endpoint and a direction.
struct StreamEntry {
  std::size_t process = 0;
  bool isUpload = true;
  std::string addressText;
  NetworkAddress address;
  std::uint16_t port = 0;
};

// Packet records of one stream, among which its bytes are divided.
struct TrafficStep {
  StreamEntry stream;
  std::uint64_t bytes = 0;
  std::uint32_t records = 1;
  std::int64_t timeOffset = 0;  // of the first record, in milliseconds relative to the player's "now"
  std::int64_t timeStep = 0;    // from one record to the next
};

// Records that the driver makes by itself, as fast as they are taken. Each has `bytesStep` bytes more than
// the one before; the port goes round `ports` values.
struct FloodStep {
  std::uint64_t count = 0;
  StreamEntry stream;
  std::uint64_t bytes = 0;
  std::uint64_t bytesStep = 0;
  std::uint32_t ports = 1;
  std::int64_t timeOffset = 0;
  std::int64_t timeStep = 0;
};

using Step = std::variant<EventStep, WaitStep, ExitStep, UnloadStep, TrafficStep, FloodStep>;

enum class DetectionKind { Upload, Download, CloudDrive };

// What the endpoints of a detection are: the one stream that fits the file's size, or all that might.
enum class EndpointsMeaning { None, Match, Fallback };

struct ExpectedEndpoint {
  std::string addressText;
  NetworkAddress address;
  std::uint16_t port = 0;
  std::optional<std::string> hostName;  // not compared when absent
};

struct Expectation {
  DetectionKind kind = DetectionKind::Upload;
  std::size_t file = 0;
  std::vector<std::size_t> processes;  // any one of them
  std::int32_t fileEventType = EVENT_READ;
  std::optional<bool> isNetworkDrive;
  std::optional<std::vector<ExpectedEndpoint>> endpoints =
      std::nullopt;                                                 // in this order; not compared when absent
  std::optional<EndpointsMeaning> endpointsMeaning = std::nullopt;  // not compared when absent
};

struct Scenario {
  std::string name;
  std::string description;
  std::vector<ProcessEntry> processes;
  std::vector<FileEntry> files;
  std::vector<Step> steps;
  std::vector<Expectation> expectations;
};

}  // namespace ostrel::lab

#endif
