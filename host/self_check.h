#ifndef OSTREL_HOST_SELF_CHECK_H
#define OSTREL_HOST_SELF_CHECK_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "exit_code.h"

namespace ostrel::host {

// How long a part of the system may take to answer. One that hangs must not hang the self-check.
constexpr std::chrono::seconds ANSWER_PATIENCE{10};

// Empty when it did not come in time.
template <typename T>
using Answer = std::optional<T>;

struct Rights {
  bool isElevated = false;
  bool mayLoadDrivers = false;
};

struct DriverFiles {
  std::string folder;
  std::vector<std::string> missing;
};

// Whom the library takes its process for when it starts the helper. Nobody can tell while nobody is logged
// on.
enum class HelperMode { Unknown, Application, Service };

struct UserSession {
  std::uint32_t error = 0;  // of listing the sessions
  std::uint32_t id = 0;     // 0: none is active
  HelperMode mode = HelperMode::Unknown;
};

struct HelperFile {
  std::string path;
  bool isThere = false;
};

struct HelperFiles {
  HelperFile application;
  HelperFile service;
};

enum class ServiceState { Stopped, Changing, Running };

struct Service {
  std::uint32_t error = 0;  // of looking at it
  ServiceState state = ServiceState::Stopped;
  bool isDisabled = false;
  std::uint32_t lastError = 0;  // with which it stopped
};

// Another process that has the library loaded: a host, or one that is about to be.
struct OtherHost {
  std::string imageName;
  std::uint32_t processId = 0;
};

// Codes are those of Windows, 0 for success; a port's is the HRESULT.
struct SelfCheckFacts {
  Answer<Rights> rights;
  Answer<DriverFiles> driverFiles;
  Answer<std::uint32_t> filteringEngine;
  Answer<UserSession> session;
  Answer<HelperFiles> helpers;
  Answer<Service> minifilter;
  Answer<Service> networkDriver;
  Answer<std::vector<OtherHost>> hosts;
  Answer<std::uint32_t> eventPort;
  Answer<std::uint32_t> controlPort;
  Answer<std::uint32_t> networkDevice;
};

// Why something is not opened; empty when it may be. Ports and device may be for one program at a time, so
// that opening one could make a host that needs it at this moment fail: they are opened only when no other
// host is there. Each looks at what must have been found out before: rights, services and hosts; for the
// control port and the device also at the event port.
std::string WhyEventPortIsLeft(const SelfCheckFacts& facts);
std::string WhyControlPortIsLeft(const SelfCheckFacts& facts);
std::string WhyNetworkDeviceIsLeft(const SelfCheckFacts& facts);

enum class CheckOutcome { Ok, Fail, Skipped };

struct Check {
  CheckOutcome outcome = CheckOutcome::Ok;
  std::string subject;
  std::string finding;
  std::string remedy;  // of a failure
};

// In the order in which a start needs them, so that the first failure is the one to mend first.
std::vector<Check> JudgeFacts(const SelfCheckFacts& facts);

// One line without its line end.
std::string CheckLine(const Check& check);

ExitCode SelfCheckResult(const std::vector<Check>& checks);

}  // namespace ostrel::host

#endif
