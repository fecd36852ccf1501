#include "observations.h"

#include <windows.h>
// Need windows.h before them.
#include <fltuser.h>
#include <fwpmu.h>
#include <tlhelp32.h>
#include <wtsapi32.h>

#include <cwchar>
#include <filesystem>

#include "deadline.h"
#include "filter/port_messages.h"
#include "machine.h"
#include "utf8.h"
#include "util/installed_names.h"
#include "util/unique_handle.h"

namespace ostrel::host {

namespace {

constexpr wchar_t LIBRARY[] = L"OstrelFilterLib.dll";

struct EnginePolicy {
  using Handle = HANDLE;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle engine) noexcept { FwpmEngineClose0(engine); }
};
using UniqueEngine = UniqueHandle<EnginePolicy>;

struct SessionListPolicy {
  using Handle = WTS_SESSION_INFOW*;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle list) noexcept { WTSFreeMemory(list); }
};
using UniqueSessionList = UniqueHandle<SessionListPolicy>;

template <typename Ask>
auto Answered(Ask ask) {
  return AnswerWithin(ANSWER_PATIENCE, ask);
}

bool IsElevated() {
  HANDLE opened = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) return false;
  const UniqueKernelHandle token(opened);
  TOKEN_ELEVATION elevation{};
  DWORD size = 0;
  return GetTokenInformation(token.Get(), TokenElevation, &elevation, sizeof elevation, &size) &&
         elevation.TokenIsElevated != 0;
}

DriverFiles ObserveDriverFiles() {
  const std::wstring folder = ModuleFolder(LIBRARY);
  DriverFiles files{ToUtf8(folder), {}};
  for (const std::wstring& name : MissingDriverFiles(folder)) files.missing.push_back(ToUtf8(name));
  return files;
}

std::uint32_t OpenFilteringEngine() {
  HANDLE engine = nullptr;
  const DWORD status = FwpmEngineOpen0(nullptr, RPC_C_AUTHN_WINNT, nullptr, nullptr, &engine);
  if (status == ERROR_SUCCESS) UniqueEngine(engine).Close();
  return status;
}

// As the library finds out: only a service may have the user's token.
HelperMode ModeIn(DWORD session) {
  HANDLE token = nullptr;
  if (!WTSQueryUserToken(session, &token)) return HelperMode::Application;
  UniqueKernelHandle(token).Close();
  return HelperMode::Service;
}

// The first active session; that of the services, 0, counts as none.
UserSession ObserveSession() {
  WTS_SESSION_INFOW* sessions = nullptr;
  DWORD count = 0;
  if (!WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &sessions, &count))
    return {GetLastError(), 0, {}};
  const UniqueSessionList list(sessions);
  for (DWORD i = 0; i < count; ++i) {
    if (sessions[i].State != WTSActive) continue;
    const DWORD id = sessions[i].SessionId;
    return {0, id, id == 0 ? HelperMode::Unknown : ModeIn(id)};
  }
  return {};
}

HelperFile ObserveHelper(const wchar_t* name) {
  const std::filesystem::path path = std::filesystem::current_path() / name;
  std::error_code none;
  return {ToUtf8(path.wstring()), std::filesystem::is_regular_file(path, none)};
}

ServiceState StateOf(const SERVICE_STATUS& status) {
  if (status.dwCurrentState == SERVICE_RUNNING) return ServiceState::Running;
  return status.dwCurrentState == SERVICE_STOPPED ? ServiceState::Stopped : ServiceState::Changing;
}

bool IsDisabled(SC_HANDLE service) {
  DWORD size = 0;
  QueryServiceConfigW(service, nullptr, 0, &size);
  std::vector<BYTE> buffer(size);
  auto* const configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
  return QueryServiceConfigW(service, configuration, size, &size) &&
         configuration->dwStartType == SERVICE_DISABLED;
}

bool HasModule(DWORD processId, const std::wstring& name) {
  const UniqueFileHandle modules(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, processId));
  MODULEENTRY32W module{};
  module.dwSize = sizeof module;
  for (BOOL more = modules ? Module32FirstW(modules.Get(), &module) : FALSE; more;
       more = Module32NextW(modules.Get(), &module)) {
    if (_wcsicmp(module.szModule, name.c_str()) == 0) return true;
  }
  return false;
}

// Opens the port and closes it at once.
std::uint32_t TryPort(const wchar_t* name, const void* context, WORD contextLength) {
  HANDLE port = nullptr;
  const HRESULT result = FilterConnectCommunicationPort(name, 0, context, contextLength, nullptr, &port);
  if (SUCCEEDED(result)) UniqueKernelHandle(port).Close();
  return FAILED(result) ? static_cast<std::uint32_t>(result) : 0;
}

std::uint32_t TryEventPort() {
  const ConnectionContext context{GetCurrentProcessId(), PROTOCOL_CODE};
  return TryPort(NOTIFICATION_PORT_NAME, &context, sizeof context);
}

std::uint32_t TryControlPort() {
  return TryPort(CONTROL_PORT_NAME, nullptr, 0);
}

std::uint32_t TryNetworkDevice() {
  const UniqueFileHandle device(CreateFileW(NETWORK_DEVICE_PATH, GENERIC_READ | GENERIC_WRITE,
                                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                            FILE_FLAG_OVERLAPPED, nullptr));
  return device ? ERROR_SUCCESS : GetLastError();
}

}  // namespace

SelfCheckFacts ObserveMachine() {
  SelfCheckFacts facts;
  facts.rights = Answered(ObserveRights);
  facts.driverFiles = Answered(ObserveDriverFiles);
  facts.filteringEngine = Answered(OpenFilteringEngine);
  facts.session = Answered(ObserveSession);
  facts.helpers = Answered(ObserveHelpers);
  facts.minifilter = Answered([] { return ObserveService(MINIFILTER_SERVICE_NAME); });
  facts.networkDriver = Answered([] { return ObserveService(NETWORK_DRIVER_SERVICE_NAME); });
  facts.hosts = Answered([] { return OtherProcessesWith(LIBRARY); }).value_or(std::nullopt);
  if (WhyEventPortIsLeft(facts).empty()) facts.eventPort = Answered(TryEventPort);
  if (WhyControlPortIsLeft(facts).empty()) facts.controlPort = Answered(TryControlPort);
  if (WhyNetworkDeviceIsLeft(facts).empty()) facts.networkDevice = Answered(TryNetworkDevice);
  return facts;
}

Rights ObserveRights() {
  return {IsElevated(), HoldsLoadDriverPrivilege()};
}

HelperFiles ObserveHelpers() {
  return {ObserveHelper(APPLICATION_MODE_HELPER), ObserveHelper(SERVICE_MODE_HELPER)};
}

Service ObserveService(const std::wstring& name) {
  const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  if (!manager) return {GetLastError(), {}, {}, {}};
  const UniqueServiceHandle service(
      OpenServiceW(manager.Get(), name.c_str(), SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG));
  if (!service) return {GetLastError(), {}, {}, {}};
  SERVICE_STATUS status{};
  if (!QueryServiceStatus(service.Get(), &status)) return {GetLastError(), {}, {}, {}};
  return {0, StateOf(status), IsDisabled(service.Get()), status.dwWin32ExitCode};
}

std::optional<std::vector<OtherHost>> OtherProcessesWith(const std::wstring& moduleName) {
  const UniqueFileHandle processes(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!processes) return std::nullopt;
  std::vector<OtherHost> hosts;
  PROCESSENTRY32W process{};
  process.dwSize = sizeof process;
  for (BOOL more = Process32FirstW(processes.Get(), &process); more;
       more = Process32NextW(processes.Get(), &process)) {
    // Of process 0, a snapshot would be taken of this process itself.
    if (process.th32ProcessID == 0 || process.th32ProcessID == GetCurrentProcessId()) continue;
    if (HasModule(process.th32ProcessID, moduleName))
      hosts.push_back({ToUtf8(process.szExeFile), process.th32ProcessID});
  }
  return hosts;
}

}  // namespace ostrel::host
