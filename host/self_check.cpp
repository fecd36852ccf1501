#include "self_check.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>

#include "diagnosis.h"

namespace ostrel::host {

namespace {

constexpr std::uint32_t SERVICE_DOES_NOT_EXIST = 1060;
constexpr std::uint32_t SERVICE_NEVER_STARTED = 1077;
constexpr std::uint32_t ANOTHER_HOST_IS_CONNECTED = 0x800704D6;
// Of an HRESULT that stands for a Windows error.
constexpr std::uint32_t WINDOWS_ERROR = 0x80070000;

const char* const START_A_HOST =
    "A host installs and starts it, such as OstrelHost.exe --watch chrome.exe; its log says why when it "
    "cannot.";
const char* const SAME_VERSION = "See that driver and library are of the same version.";

Check Ok(std::string subject, std::string finding) {
  return {CheckOutcome::Ok, std::move(subject), std::move(finding), {}};
}

Check Fail(std::string subject, std::string finding, std::string remedy) {
  return {CheckOutcome::Fail, std::move(subject), std::move(finding), std::move(remedy)};
}

Check Skipped(std::string subject, std::string finding) {
  return {CheckOutcome::Skipped, std::move(subject), std::move(finding), {}};
}

Check NoAnswer(std::string subject) {
  return Fail(std::move(subject), "no answer within " + std::to_string(ANSWER_PATIENCE.count()) + " seconds",
              "Try again; when that does not help, restart the system.");
}

std::string Error(std::uint32_t code) {
  return "error " + std::to_string(code);
}

std::string Result(std::uint32_t code) {
  char text[16] = {};
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(code));
  return text;
}

std::string Named(const OtherHost& host) {
  return host.imageName + " (process " + std::to_string(host.processId) + ")";
}

bool IsRunning(const Answer<Service>& service) {
  return service && service->error == 0 && service->state == ServiceState::Running;
}

// Without the rights of an administrator other hosts cannot be seen, and the rest is refused anyway.
std::string WhyNothingIsOpened(const SelfCheckFacts& facts) {
  if (!facts.rights || !facts.rights->isElevated) return "not tried, since this process is not elevated";
  if (!facts.hosts) return "not tried, since it could not be found out whether another host runs";
  if (!facts.hosts->empty()) {
    return "left to " + Named(facts.hosts->front()) +
           ", which has the library loaded: opening it could get in that host's way";
  }
  return {};
}

bool HoldsHiddenHost(const SelfCheckFacts& facts) {
  return facts.eventPort == ANOTHER_HOST_IS_CONNECTED;
}

std::string WhyLeftToHiddenHost(const SelfCheckFacts& facts) {
  if (!HoldsHiddenHost(facts)) return {};
  return "left to the host that is connected to the event port: opening it could get in that host's way";
}

Check CheckRights(const SelfCheckFacts& facts) {
  const char* const subject = "rights";
  if (!facts.rights) return NoAnswer(subject);
  if (!facts.rights->isElevated) {
    return Fail(subject, "this process is not elevated",
                "Start it from an elevated prompt (\"Run as administrator\") or as a service of the local "
                "system account.");
  }
  if (!facts.rights->mayLoadDrivers) {
    return Fail(subject, "this process is elevated, but its account may not load drivers",
                "Give the account the user right \"Load and unload device drivers\" and log on anew.");
  }
  return Ok(subject, "this process is elevated and may load drivers");
}

Check CheckDriverFiles(const SelfCheckFacts& facts) {
  const char* const subject = "driver files";
  if (!facts.driverFiles) return NoAnswer(subject);
  const DriverFiles& files = *facts.driverFiles;
  if (files.missing.empty()) return Ok(subject, "all four lie beside OstrelFilterLib.dll in " + files.folder);
  std::string names;
  for (const std::string& name : files.missing) names += (names.empty() ? "" : ", ") + name;
  return Fail(subject, "not beside OstrelFilterLib.dll in " + files.folder + ": " + names,
              "Put all four driver files there.");
}

Check CheckFilteringEngine(const SelfCheckFacts& facts) {
  const char* const subject = "filtering engine";
  if (!facts.filteringEngine) return NoAnswer(subject);
  if (*facts.filteringEngine == 0) return Ok(subject, "the Windows Filtering Platform answers");
  return Fail(subject,
              "the Windows Filtering Platform does not answer (" + Error(*facts.filteringEngine) + ")",
              AdviceFor(*facts.filteringEngine,
                        "See that the service Base Filtering Engine runs: \"sc query BFE\" shows it."));
}

Check CheckSession(const SelfCheckFacts& facts) {
  const char* const subject = "user session";
  if (!facts.session) return NoAnswer(subject);
  const UserSession& session = *facts.session;
  if (session.error != 0) {
    return Fail(subject, "the sessions cannot be listed (" + Error(session.error) + ")",
                "See that the service Remote Desktop Services runs: \"sc query TermService\" shows it.");
  }
  if (session.id == 0) {
    return Fail(subject, "nobody is logged on",
                "Log on: tab titles and digests of files on network drives come from the session of a user.");
  }
  return Ok(subject, "session " + std::to_string(session.id) + " is active");
}

Check CheckHelper(const SelfCheckFacts& facts, const char* subject, HelperMode mode,
                  HelperFile HelperFiles::*file, const char* whoNeedsIt) {
  if (!facts.helpers) return NoAnswer(subject);
  const HelperFile& helper = (*facts.helpers).*file;
  if (helper.isThere) return Ok(subject, helper.path);
  const HelperMode own = facts.session ? facts.session->mode : HelperMode::Unknown;
  // Nobody is logged on while a service starts with the system: then it is not known which mode will be
  // needed.
  const bool isAnyThere = facts.helpers->application.isThere || facts.helpers->service.isThere;
  if (own == mode || (own == HelperMode::Unknown && !isAnyThere)) {
    return Fail(subject, "not found as " + helper.path,
                "Put OstrelUserHelper.exe there: the library looks for it from the current directory on.");
  }
  return Skipped(subject, "not found as " + helper.path + ", and needed only " + whoNeedsIt);
}

Check CheckApplicationHelper(const SelfCheckFacts& facts) {
  return CheckHelper(facts, "helper of an application", HelperMode::Application, &HelperFiles::application,
                     "by a host that is no service");
}

Check CheckServiceHelper(const SelfCheckFacts& facts) {
  return CheckHelper(facts, "helper of a service", HelperMode::Service, &HelperFiles::service,
                     "by a host that is a service");
}

// What is wrong with a service that does not run, unless it is only that nobody has started it.
std::optional<Check> CheckStandingService(const Service& service, const std::string& subject,
                                          const std::string& name) {
  if (service.error == SERVICE_DOES_NOT_EXIST) return Fail(subject, name + " is not installed", START_A_HOST);
  if (service.error != 0) {
    return Fail(subject, name + " cannot be looked at (" + Error(service.error) + ")",
                AdviceFor(service.error, "\"sc query\" may tell more."));
  }
  if (service.state == ServiceState::Changing) {
    return Fail(subject, name + " is just being started or stopped", "Try again in a moment.");
  }
  if (service.isDisabled) {
    return Fail(subject, name + " is disabled", "\"sc config " + name + " start= demand\" enables it.");
  }
  if (service.lastError != 0 && service.lastError != SERVICE_NEVER_STARTED) {
    return Fail(subject, name + " does not run and ended with " + Error(service.lastError),
                AdviceFor(service.lastError, "\"net helpmsg\" explains the error."));
  }
  return std::nullopt;
}

Check CheckMinifilter(const SelfCheckFacts& facts) {
  const char* const subject = "minifilter service";
  if (!facts.minifilter) return NoAnswer(subject);
  if (IsRunning(facts.minifilter)) return Ok(subject, "OstrelFilter runs");
  if (const auto wrong = CheckStandingService(*facts.minifilter, subject, "OstrelFilter")) return *wrong;
  return Fail(subject, "OstrelFilter is installed and does not run", START_A_HOST);
}

Check CheckNetworkDriver(const SelfCheckFacts& facts) {
  const char* const subject = "network driver service";
  if (!facts.networkDriver) return NoAnswer(subject);
  if (IsRunning(facts.networkDriver)) return Ok(subject, "OstrelNWFilter runs");
  if (const auto wrong = CheckStandingService(*facts.networkDriver, subject, "OstrelNWFilter")) return *wrong;
  return Skipped(subject, "OstrelNWFilter is installed; it runs only while a host wants remote address info");
}

std::uint32_t WindowsErrorOf(std::uint32_t result) {
  return (result & 0xFFFF0000) == WINDOWS_ERROR ? result & 0xFFFF : result;
}

Check CheckEventPort(const SelfCheckFacts& facts) {
  const char* const subject = "event port";
  if (std::string reason = WhyEventPortIsLeft(facts); !reason.empty())
    return Skipped(subject, std::move(reason));
  if (!facts.eventPort) return NoAnswer(subject);
  if (*facts.eventPort == 0) return Ok(subject, "the minifilter accepts a connection");
  if (HoldsHiddenHost(facts)) return Ok(subject, "a host is connected already, and there can be one only");
  return Fail(subject, "the minifilter refuses a connection (" + Result(*facts.eventPort) + ")",
              AdviceFor(WindowsErrorOf(*facts.eventPort), SAME_VERSION));
}

Check CheckControlPort(const SelfCheckFacts& facts) {
  const char* const subject = "control port";
  if (std::string reason = WhyControlPortIsLeft(facts); !reason.empty())
    return Skipped(subject, std::move(reason));
  if (!facts.controlPort) return NoAnswer(subject);
  if (*facts.controlPort == 0) return Ok(subject, "the minifilter accepts a connection");
  return Fail(subject, "the minifilter refuses a connection (" + Result(*facts.controlPort) + ")",
              AdviceFor(WindowsErrorOf(*facts.controlPort), SAME_VERSION));
}

Check CheckNetworkDevice(const SelfCheckFacts& facts) {
  const char* const subject = "network device";
  if (std::string reason = WhyNetworkDeviceIsLeft(facts); !reason.empty())
    return Skipped(subject, std::move(reason));
  if (!facts.networkDevice) return NoAnswer(subject);
  if (*facts.networkDevice == 0) return Ok(subject, "the network driver's device opens");
  return Fail(subject, "the network driver's device does not open (" + Error(*facts.networkDevice) + ")",
              AdviceFor(*facts.networkDevice, SAME_VERSION));
}

std::string_view Word(CheckOutcome outcome) {
  switch (outcome) {
    case CheckOutcome::Ok:
      return "ok      ";
    case CheckOutcome::Fail:
      return "fail    ";
    case CheckOutcome::Skipped:
      break;
  }
  return "skipped ";
}

}  // namespace

std::string WhyEventPortIsLeft(const SelfCheckFacts& facts) {
  if (!IsRunning(facts.minifilter)) return "not tried, since the minifilter does not run";
  return WhyNothingIsOpened(facts);
}

std::string WhyControlPortIsLeft(const SelfCheckFacts& facts) {
  if (std::string reason = WhyEventPortIsLeft(facts); !reason.empty()) return reason;
  // A minifilter that hangs is not asked twice.
  if (!facts.eventPort) return "not tried, since the event port did not answer";
  return WhyLeftToHiddenHost(facts);
}

std::string WhyNetworkDeviceIsLeft(const SelfCheckFacts& facts) {
  if (!IsRunning(facts.networkDriver)) return "not tried, since the network driver does not run";
  if (std::string reason = WhyNothingIsOpened(facts); !reason.empty()) return reason;
  return WhyLeftToHiddenHost(facts);
}

std::vector<Check> JudgeFacts(const SelfCheckFacts& facts) {
  return {CheckRights(facts),      CheckDriverFiles(facts),       CheckFilteringEngine(facts),
          CheckSession(facts),     CheckApplicationHelper(facts), CheckServiceHelper(facts),
          CheckMinifilter(facts),  CheckNetworkDriver(facts),     CheckEventPort(facts),
          CheckControlPort(facts), CheckNetworkDevice(facts)};
}

std::string CheckLine(const Check& check) {
  std::string line = std::string(Word(check.outcome)) + check.subject + ": " + check.finding;
  if (!check.remedy.empty()) line += ". " + check.remedy;
  return line;
}

ExitCode SelfCheckResult(const std::vector<Check>& checks) {
  const bool hasFailure = std::any_of(checks.begin(), checks.end(),
                                      [](const Check& check) { return check.outcome == CheckOutcome::Fail; });
  return hasFailure ? ExitCode::SelfCheckFailed : ExitCode::Success;
}

}  // namespace ostrel::host
