#include "diagnosis.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace ostrel::host {

namespace {

// A line of the library's log: how its text begins, after which prefix the system's code follows and in which
// base.
struct Rule {
  std::string_view line;
  int codeBase;
  ExitCode exitCode;
  const char* happened;
  const char* advice;
};

constexpr int NO_CODE = 0;

const char* const NOT_ELEVATED_ADVICE =
    "Start it from an elevated prompt (\"Run as administrator\") or as a service of the local system "
    "account.";
const char* const RESOURCES_ADVICE =
    "The system is short of memory or threads; end other programs and try again.";
const char* const STILL_LOADED_ADVICE =
    "It may still be loaded: \"fltmc filters\" shows it, \"fltmc unload OstrelFilter\" unloads it.";

constexpr std::string_view PREFIX = "OstrelFilterDriver: ";
constexpr std::string_view SERVICE_SETUP_FAILED = "Could not setup service. ";

// Every line that makes a load fail, or makes a successful one useless. All but the last two end LoadDriver,
// so that only one of them can be there.
const Rule LOAD_RULES[] = {
    {"Could not enable privilege", NO_CODE, ExitCode::NotElevated,
     "The privilege to load drivers could not be enabled.", NOT_ELEVATED_ADVICE},
    {"Could not enable SE_LOAD_DRIVER_NAME privilege", NO_CODE, ExitCode::NotElevated,
     "The privilege to load drivers could not be enabled.", NOT_ELEVATED_ADVICE},
    {"Could not unload driver during InstallDriver: HResult: ", 16, ExitCode::InstallFailed,
     "The minifilter is loaded already and could not be unloaded for its installation.",
     "End whatever uses it, then try again; \"fltmc unload OstrelFilter\" unloads it by hand."},
    {"Could not open INF file. Error on line ", NO_CODE, ExitCode::InstallFailed,
     "A driver's INF file could not be read.",
     "Replace it by the one delivered with the driver; line 0 means that the file as a whole is unreadable."},
    {"Could not copy driver file. ", 10, ExitCode::InstallFailed,
     "A driver's SYS file could not be copied to the system's drivers folder.",
     "See that the file beside the library is readable and that the drivers folder can be written."},
    {"Could not start driver service: HResult: ", 16, ExitCode::LoadFailed,
     "The minifilter could not be loaded.",
     "See that OstrelFilter.inf and OstrelFilter.sys belong together and fit this version of Windows."},
    {"Could not connect to driver communication port: HResult: ", 16, ExitCode::PortRefused,
     "The minifilter is loaded but refused the connection for its events.",
     "See that driver and library are of the same version."},
    {"Could not start receive notification thread. Code: ", 10, ExitCode::LoadFailed,
     "The thread that receives the minifilter's events could not be started.", RESOURCES_ADVICE},
    {"Could not start Disk Event thread. Code: ", 10, ExitCode::LoadFailed,
     "The thread that reports detections could not be started.", RESOURCES_ADVICE},
    {"Disk Event thread already started!", NO_CODE, ExitCode::LoadFailed,
     "The thread that reports detections is still busy with an earlier run.",
     "End this process and start anew."},
};

const Rule CONFIGURATION_RULES[] = {
    {"Error opening port for updating monitored processes: HResult: ", 16, ExitCode::PortRefused,
     "The minifilter's configuration port cannot be opened: the minifilter is not loaded any more, or "
     "refuses.",
     "Start again; \"fltmc filters\" shows whether OstrelFilter is loaded."},
    {"Error getting message while updating kernel filter: HResult: ", 16, ExitCode::PortRefused,
     "The minifilter did not take the list of what to watch.",
     "See that driver and library are of the same version."},
};

const Rule UNLOAD_RULES[] = {
    {"Could not enable privilege", NO_CODE, ExitCode::UnloadFailed,
     "The minifilter was not unloaded: the privilege to do so could not be enabled.", STILL_LOADED_ADVICE},
    {"Could not unload driver. ", 16, ExitCode::UnloadFailed, "The minifilter could not be unloaded.",
     STILL_LOADED_ADVICE},
};

const char* const SERVICE_ADVICE =
    "See that OstrelNWFilter.inf and OstrelNWFilter.sys belong together and fit this version of Windows; "
    "\"sc query OstrelNWFilter\" shows the service.";
const char* const ENGINE_ADVICE = "See that the service Base Filtering Engine (BFE) runs.";
const char* const NETWORK_VERSION_ADVICE =
    "See that the network driver and the library are of the same version.";

// In the order in which one step makes the next ones fail.
const Rule REMOTE_ADDRESS_INFO_ON_RULES[] = {
    {"OpenSCManager failed (", 10, ExitCode::RemoteAddressInfoFailed,
     "The service manager could not be opened for the network driver.", NOT_ELEVATED_ADVICE},
    {"OpenService failed (", 10, ExitCode::RemoteAddressInfoFailed,
     "The network driver's service could not be opened.", SERVICE_ADVICE},
    {"StartService failed (", 10, ExitCode::RemoteAddressInfoFailed,
     "The network driver's service could not be started.", SERVICE_ADVICE},
    {"Could not open filtering engine. ", 10, ExitCode::RemoteAddressInfoFailed,
     "The Windows Filtering Platform could not be opened.", ENGINE_ADVICE},
    {"Could not open filtering engine V6. ", 10, ExitCode::RemoteAddressInfoFailed,
     "The Windows Filtering Platform could not be opened.", ENGINE_ADVICE},
    {"Could not start transaction for adding ", NO_CODE, ExitCode::RemoteAddressInfoFailed,
     "The network driver's callouts could not be registered.", ENGINE_ADVICE},
    {"Could not add persistent ", NO_CODE, ExitCode::RemoteAddressInfoFailed,
     "The network driver's callouts could not be registered.", ENGINE_ADVICE},
    {"Could not commit ", NO_CODE, ExitCode::RemoteAddressInfoFailed,
     "The network driver's callouts could not be registered.", ENGINE_ADVICE},
    {"Could not open monitoring. ", 10, ExitCode::RemoteAddressInfoFailed,
     "The network driver's device could not be opened.", NETWORK_VERSION_ADVICE},
    {"Couldn't resolve user. ", 10, ExitCode::RemoteAddressInfoFailed,
     "The user whose connections to look at could not be found.",
     "Give --user an account name that this machine knows, such as anna or DOMAIN\\anna."},
    {"Could not add filters. ", 10, ExitCode::RemoteAddressInfoFailed,
     "The filters for the user's connections could not be set up.", ENGINE_ADVICE},
    {"Could not add V6 filters. ", 10, ExitCode::RemoteAddressInfoFailed,
     "The filters for the user's IPv6 connections could not be set up.", ENGINE_ADVICE},
    {"Could not enable monitoring. ", 10, ExitCode::RemoteAddressInfoFailed,
     "The network driver did not start to look at connections.", NETWORK_VERSION_ADVICE},
    {"Could not start receive notification thread. Code: ", 10, ExitCode::RemoteAddressInfoFailed,
     "The thread that reads the network driver's records could not be started.", RESOURCES_ADVICE},
};

const char* const NETWORK_DRIVER_RUNS_ADVICE =
    "The network driver may still run: \"sc stop OstrelNWFilter\" stops it.";

// A device that could not be closed is not among them: it was never opened, as switching on has said.
const Rule REMOTE_ADDRESS_INFO_OFF_RULES[] = {
    {"OpenSCManager failed (", 10, ExitCode::RemoteAddressInfoFailed,
     "The service manager could not be opened for the network driver.", NETWORK_DRIVER_RUNS_ADVICE},
    {"OpenService failed (", 10, ExitCode::RemoteAddressInfoFailed,
     "The network driver's service could not be opened.", NETWORK_DRIVER_RUNS_ADVICE},
    {"QueryServiceStatusEx failed. ", 10, ExitCode::RemoteAddressInfoFailed,
     "The network driver's service could not be queried.", NETWORK_DRIVER_RUNS_ADVICE},
    {"GetNWPacketInfo thread never ended.", NO_CODE, ExitCode::RemoteAddressInfoFailed,
     "The thread that reads the network driver's records did not end.", NETWORK_DRIVER_RUNS_ADVICE},
};

// Errors that say more than the step at which they came.
struct KnownCode {
  std::uint32_t code;
  const char* advice;
};
constexpr std::uint32_t PRIVILEGE_NOT_HELD = 1314;
const KnownCode KNOWN_CODES[] = {
    {5, "Access was denied: start it from an elevated prompt, and see that no security product forbids it."},
    {32, "Another program has the driver file open: end it, then try again."},
    {577,
     "Windows does not accept the driver's signature: use a signed driver or, on a test machine only, switch "
     "test "
     "signing on."},
    {1053, "Its service did not answer in time: try again, after a restart of the system if need be."},
    {1058,
     "Its service is disabled: \"sc config OstrelFilter start= demand\" enables it, for the network driver "
     "with OstrelNWFilter."},
    {1238, "Another host is connected already, and there can be one only: end it, then try again."},
    {1275, "Windows blocks this driver: see its policy for drivers."},
    {PRIVILEGE_NOT_HELD, NOT_ELEVATED_ADVICE},
};

std::string_view WithoutPrefix(std::string_view line) {
  if (line.substr(0, PREFIX.size()) == PREFIX) line.remove_prefix(PREFIX.size());
  return line;
}

// Some lines of the library end with a line end of their own.
std::string Quoted(std::string_view line) {
  line = WithoutPrefix(line);
  while (!line.empty() && line.back() == '\n') line.remove_suffix(1);
  return std::string(line);
}

const std::string* FindLine(const std::vector<std::string>& lines, std::string_view beginning) {
  const auto found = std::find_if(lines.begin(), lines.end(), [&](const std::string& line) {
    return WithoutPrefix(line).substr(0, beginning.size()) == beginning;
  });
  return found == lines.end() ? nullptr : &*found;
}

// The system's code at the end of the line; for an HRESULT that wraps one, what it wraps.
std::uint32_t CodeOf(const Rule& rule, std::string_view line) {
  if (rule.codeBase == NO_CODE) return 0;
  const std::string digits(WithoutPrefix(line).substr(rule.line.size()));
  const auto code = static_cast<std::uint32_t>(std::strtoull(digits.c_str(), nullptr, rule.codeBase));
  return (code & 0xFFFF0000U) == 0x80070000U ? code & 0xFFFFU : code;
}

Diagnosis Judge(const Rule& rule, std::string_view line) {
  const std::uint32_t code = CodeOf(rule, line);
  const bool isForElevation = code == PRIVILEGE_NOT_HELD && rule.exitCode != ExitCode::UnloadFailed;
  return {isForElevation ? ExitCode::NotElevated : rule.exitCode,
          std::string(rule.happened) + " (" + Quoted(line) + ") " + AdviceFor(code, rule.advice)};
}

template <std::size_t Count>
std::optional<Diagnosis> JudgeByLines(const Rule (&rules)[Count], const std::vector<std::string>& lines) {
  for (const Rule& rule : rules) {
    if (const std::string* line = FindLine(lines, rule.line)) return Judge(rule, *line);
  }
  return std::nullopt;
}

// A failure that no rule knows: the log has the last word.
Diagnosis Unexplained(ExitCode exitCode, const char* happened, const std::vector<std::string>& lines) {
  const std::string reason = lines.empty() ? "The library gave no reason; it may be short of memory."
                                           : "The library says: " + std::string(WithoutPrefix(lines.back()));
  return {exitCode, std::string(happened) + " " + reason};
}

// The service's set-up may fail and leave the service of an earlier installation, which is good enough as
// long as it starts.
std::string ServiceSetupNote(const std::vector<std::string>& lines) {
  const std::string* const line = FindLine(lines, SERVICE_SETUP_FAILED);
  if (line == nullptr) return {};
  return " Before that, a driver's service could not be set up from its INF file, which may be the reason. "
         "(" +
         std::string(WithoutPrefix(*line)) + ")";
}

}  // namespace

const char* AdviceFor(std::uint32_t code, const char* otherwise) {
  const auto* const known = std::find_if(std::begin(KNOWN_CODES), std::end(KNOWN_CODES),
                                         [&](const KnownCode& candidate) { return candidate.code == code; });
  return known == std::end(KNOWN_CODES) ? otherwise : known->advice;
}

std::optional<Diagnosis> DiagnoseMachine(const MachineFacts& facts) {
  if (!facts.missingDriverFiles.empty()) {
    std::string names;
    for (const std::string& name : facts.missingDriverFiles) names += (names.empty() ? "" : ", ") + name;
    return Diagnosis{ExitCode::DriverFilesMissing, "Not found beside OstrelFilterLib.dll in " +
                                                       facts.libraryFolder + ": " + names +
                                                       ". Put all four driver files there."};
  }
  if (!facts.holdsLoadDriverPrivilege) {
    return Diagnosis{ExitCode::NotElevated,
                     std::string("This process may not load drivers. ") + NOT_ELEVATED_ADVICE};
  }
  return std::nullopt;
}

std::optional<Diagnosis> DiagnoseLoad(const CallFacts& facts) {
  std::optional<Diagnosis> diagnosis = JudgeByLines(LOAD_RULES, facts.errorLines);
  if (!diagnosis && !facts.succeeded) {
    diagnosis = Unexplained(ExitCode::LoadFailed, "The library could not be started.", facts.errorLines);
  }
  if (diagnosis) diagnosis->message += ServiceSetupNote(facts.errorLines);
  return diagnosis;
}

std::optional<Diagnosis> DiagnoseConfiguration(const CallFacts& facts) {
  if (auto diagnosis = JudgeByLines(CONFIGURATION_RULES, facts.errorLines)) return diagnosis;
  if (facts.succeeded) return std::nullopt;
  return Unexplained(ExitCode::PortRefused, "Detection could not be switched on.", facts.errorLines);
}

std::optional<Diagnosis> DiagnoseRemoteAddressInfoOn(const CallFacts& facts) {
  auto diagnosis = JudgeByLines(REMOTE_ADDRESS_INFO_ON_RULES, facts.errorLines);
  if (diagnosis) diagnosis->message.insert(0, "Detections may lack endpoints. ");
  return diagnosis;
}

std::optional<Diagnosis> DiagnoseRemoteAddressInfoOff(const CallFacts& facts) {
  return JudgeByLines(REMOTE_ADDRESS_INFO_OFF_RULES, facts.errorLines);
}

bool SaysMinifilterIsGone(std::string_view line) {
  line = WithoutPrefix(line);
  return line == "Driver unloaded." ||
         line == "Error getting message while receiving notifications: HResult: 80070006";
}

Diagnosis MinifilterIsGone() {
  return {
      ExitCode::PortRefused,
      "The minifilter was unloaded by someone else, such as another host, so nothing new is seen. What was "
      "seen before is still reported for a minute; then this program ends. Start it again when the "
      "minifilter may "
      "stay loaded."};
}

std::optional<Diagnosis> DiagnoseUnload(const CallFacts& facts) {
  if (facts.succeeded) return std::nullopt;
  if (auto diagnosis = JudgeByLines(UNLOAD_RULES, facts.errorLines)) return diagnosis;
  return Unexplained(ExitCode::UnloadFailed, "The minifilter could not be unloaded.", facts.errorLines);
}

}  // namespace ostrel::host
