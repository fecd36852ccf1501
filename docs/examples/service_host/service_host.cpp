// A host as a Windows service named FirstService: adds what chrome.exe uploads and downloads, and the
// failures from the log, to detections.txt beside it.
#include <windows.h>

#include <api/exports.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

constexpr wchar_t SERVICE_NAME[] = L"FirstService";

// Neither the library's callbacks nor the service control handler's caller keep a C++ object for us, and a
// thread of the library may still call after UnloadDriver: what they use stays until the process ends.
HANDLE stop = nullptr;
std::FILE* output = nullptr;
SERVICE_STATUS_HANDLE statusHandle = nullptr;

// One call per line: callbacks run on several threads at once.
void Write(const std::wstring& line) {
  std::fputws((line + L"\n").c_str(), output);
  std::fflush(output);
}

void OnLog(const wchar_t* text, std::uint32_t) noexcept {
  Write(text);
}

void OnActivity(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user, std::uint64_t,
                std::uint32_t fileEventType, std::int32_t, wchar_t**, std::uint32_t*, wchar_t**, std::int32_t,
                wchar_t**, const wchar_t*, std::uint8_t, const wchar_t*, const wchar_t*, std::uint32_t,
                const wchar_t*, const wchar_t*) noexcept {
  const std::wstring kind = fileEventType == 0 ? L"Upload of " : L"Download of ";
  Write(kind + fileName + L" by " + user + L" (" + processName + L")");
}

void Report(DWORD state, DWORD exitCode, DWORD waitHint) {
  SERVICE_STATUS status = {};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
  status.dwWin32ExitCode = exitCode;
  status.dwWaitHint = waitHint;
  SetServiceStatus(statusHandle, &status);
}

// Returns at once, as a control handler must: unloading takes its time.
DWORD WINAPI OnControl(DWORD control, DWORD, void*, void*) {
  if (control == SERVICE_CONTROL_INTERROGATE) return NO_ERROR;
  if (control != SERVICE_CONTROL_STOP && control != SERVICE_CONTROL_SHUTDOWN)
    return ERROR_CALL_NOT_IMPLEMENTED;
  SetEvent(stop);
  return NO_ERROR;
}

bool WatchUntilStopped() {
  const wchar_t* processes[] = {L"chrome.exe"};
  if (!EnableActivityDetection(OnActivity, L"", processes, 1, nullptr, 0, 0, false, true)) return false;
  Report(SERVICE_RUNNING, NO_ERROR, 0);
  while (WaitForSingleObject(stop, 5000) == WAIT_TIMEOUT) UpdateProcesses(processes, 1, 0);
  // Waiting for the library's threads takes up to 3 seconds, unloading the driver longer in bad cases.
  Report(SERVICE_STOP_PENDING, NO_ERROR, 30000);
  DisableActivityDetection();
  return true;
}

bool Run() {
  if (!LoadDriver(OnLog, 3)) return false;
  const bool watched = WatchUntilStopped();
  return UnloadDriver() && watched;
}

// A service starts in System32; the library looks for nlib\OstrelUserHelper.exe in the current directory.
void EnterProgramFolder() {
  wchar_t program[32768];
  GetModuleFileNameW(nullptr, program, 32768);
  std::filesystem::current_path(std::filesystem::path(program).parent_path());
}

void WINAPI ServiceMain(DWORD, wchar_t**) {
  statusHandle = RegisterServiceCtrlHandlerExW(SERVICE_NAME, OnControl, nullptr);
  Report(SERVICE_START_PENDING, NO_ERROR, 30000);
  EnterProgramFolder();
  output = _wfopen(L"detections.txt", L"a, ccs=UTF-8");
  stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  const bool succeeded = output != nullptr && stop != nullptr && Run();
  Report(SERVICE_STOPPED, succeeded ? NO_ERROR : ERROR_GEN_FAILURE, 0);
}

}  // namespace

int main() {
  wchar_t name[] = L"FirstService";
  const SERVICE_TABLE_ENTRYW services[] = {{name, ServiceMain}, {nullptr, nullptr}};
  // Returns when the service has stopped.
  return StartServiceCtrlDispatcherW(services) ? 0 : 1;
}
