// A titles request from end to end beside the platform calls that it cannot do without.
#include <windows.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "figures.h"
#include "stopwatch.h"
#include "userhelper/helper_requests.h"
#include "userhelper/random_hex_id.h"
#include "userhelper/request_message.h"
#include "util/unique_handle.h"

namespace {

using namespace ostrel;
using namespace ostrel::bench;

constexpr int ROUNDS = 21;
constexpr wchar_t PROCESS[] = L"titles_bench.exe";
constexpr DWORD PAUSE_MILLISECONDS = 50;
constexpr DWORD PATIENCE_MILLISECONDS = 20000;

void RequestFromLibrary(std::vector<double>& values) {
  std::wstring status;
  const Stopwatch watch;
  const std::vector<std::wstring> titles = GetTabTitlesFromUserHelper(GetCurrentProcessId(), PROCESS, status);
  values.push_back(watch.Seconds() * 1e3);
  if (titles.size() != 1) throw std::runtime_error("the library got no title");
}

// What a request consists of, made before its time is taken.
struct BareRequest {
  std::wstring commandId = GenerateRandomHexId();
  std::wstring channelName = GenerateRandomHexId();
  std::wstring commandLine = commandId + L' ' + channelName;
  std::wstring pipeName = L"\\\\.\\pipe\\OstrelUserHelper\\" + channelName;
  std::wstring text = [this] {
    std::wostringstream stream;
    RequestMessage(commandId, GenerateRandomHexId(), GetCurrentProcessId(), PROCESS).Serialize(stream);
    return stream.str();
  }();
};

void Launch(BareRequest& request) {
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  if (!CreateProcessW(L"OstrelUserHelper.exe", request.commandLine.data(), nullptr, nullptr, FALSE,
                      CREATE_NO_WINDOW, nullptr, nullptr, &startup, &started)) {
    throw std::runtime_error("the helper cannot be started: " + std::to_string(GetLastError()));
  }
  CloseHandle(started.hThread);
  CloseHandle(started.hProcess);
}

// Looks for the pipe at intervals.
void WaitForPipe(const BareRequest& request, DWORD interval) {
  const ULONGLONG deadline = GetTickCount64() + PATIENCE_MILLISECONDS;
  while (!WaitNamedPipeW(request.pipeName.c_str(), NMPWAIT_USE_DEFAULT_WAIT)) {
    if (GetTickCount64() > deadline) throw std::runtime_error("the helper does not come up");
    Sleep(interval);
  }
}

void Call(BareRequest& request) {
  wchar_t reply[1024] = {};
  DWORD received = 0;
  if (!CallNamedPipeW(request.pipeName.c_str(), request.text.data(),
                      static_cast<DWORD>(request.text.size() * sizeof(wchar_t)), reply, 2048, &received,
                      2000)) {
    throw std::runtime_error("the helper does not answer: " + std::to_string(GetLastError()));
  }
}

// The pipe is looked for all the time, so that the launch takes as long as it takes and no more.
void RequestWithOnePause(std::vector<double>& values) {
  BareRequest request;
  const Stopwatch watch;
  Launch(request);
  WaitForPipe(request, 1);
  Sleep(PAUSE_MILLISECONDS);
  Call(request);
  values.push_back(watch.Seconds() * 1e3);
}

// The pipe is looked for as the library must, with a pause after each look.
void RequestWithPauses(std::vector<double>& values) {
  BareRequest request;
  const Stopwatch watch;
  Launch(request);
  WaitForPipe(request, PAUSE_MILLISECONDS);
  Sleep(PAUSE_MILLISECONDS);
  Call(request);
  values.push_back(watch.Seconds() * 1e3);
}

// A window whose title the helper can find.
HWND ShowWindowOfOurs() {
  const HWND window =
      CreateWindowExW(0, L"STATIC", L"Ostrel titles benchmark", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 100,
                      100, nullptr, nullptr, nullptr, nullptr);
  if (window == nullptr) throw std::runtime_error("there is no display for a window");
  return window;
}

}  // namespace

int wmain(int argumentCount, wchar_t** arguments) {
  if (argumentCount != 2) {
    std::fputs("Usage: titles_bench.exe FIGURES.json, in the folder of OstrelUserHelper.exe\n", stderr);
    return 2;
  }
  try {
    SetEnvironmentVariableW(L"OSTREL_LAB_SESSION", L"application");
    const HWND window = ShowWindowOfOurs();
    std::vector<double> unused;
    RequestFromLibrary(unused);
    const auto add = [](Figures& figures, const char* name, const Rounds& rounds) {
      figures.Add(name, "ms", rounds.library, rounds.alternative);
    };
    Figures figures;
    add(figures, "titles", TakeTurns(ROUNDS, RequestFromLibrary, RequestWithOnePause));
    add(figures, "titles_same_pauses", TakeTurns(ROUNDS, RequestFromLibrary, RequestWithPauses));
    DestroyWindow(window);
    figures.Write(arguments[1]);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "titles_bench: %s\n", error.what());
    return 1;
  }
}
