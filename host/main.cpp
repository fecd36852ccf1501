// OstrelHost.exe: a console host of OstrelFilterLib.dll, and the sample to copy from. This file puts the
// parts together and holds the callbacks; monitor.cpp has the library's calls in their order.
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "api/exports.h"
#include "call_errors.h"
#include "command_line.h"
#include "current_directory.h"
#include "detection_json.h"
#include "diagnosis.h"
#include "exit_code.h"
#include "library_queries.h"
#include "line_writer.h"
#include "log_writer.h"
#include "monitor.h"
#include "observations.h"
#include "self_check.h"
#include "utf8.h"
#include "windows_handle.h"

namespace {

using namespace ostrel::host;

WindowsHandle NewEvent() {
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (event == nullptr) {
    throw std::runtime_error("no event could be created, error " + std::to_string(GetLastError()));
  }
  return WindowsHandle(event);
}

// Everything the callbacks use. It is never destroyed, because a thread of the library may have something to
// say until the process ends.
struct Application {
  Application(std::uint32_t logLevel, WindowsHandle openedLogFile)
      : stop(NewEvent()),
        minifilterGone(NewEvent()),
        logFileHandle(std::move(openedLogFile)),
        output(GetStdHandle(STD_OUTPUT_HANDLE)),
        console(GetStdHandle(STD_ERROR_HANDLE)),
        logFile(logFileHandle.get()),
        log(logLevel, console, logFileHandle ? &logFile : nullptr) {}

  // A detection that cannot be written is lost, so the host does not go on as if nothing had happened.
  void Fail(ExitCode exitCode) {
    ExitCode none = ExitCode::Success;
    failure.compare_exchange_strong(none, exitCode);
    SetEvent(stop.get());
  }

  WindowsHandle stop;
  WindowsHandle minifilterGone;
  WindowsHandle logFileHandle;
  LineWriter output;
  LineWriter console;
  LineWriter logFile;
  LogWriter log;
  CallErrors errors;
  std::atomic<ExitCode> failure = ExitCode::Success;
};

// The library's callbacks and Windows' control handler carry no context.
Application* application = nullptr;

// Runs on the library's threads, which no exception may enter.
template <typename MakeLine>
void Report(MakeLine makeLine) noexcept {
  try {
    if (!application->output.Write(makeLine())) application->Fail(ExitCode::OutputFailed);
  } catch (...) {
    application->Fail(ExitCode::Internal);
  }
}

void OnActivity(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user,
                std::uint64_t endTime, std::uint32_t fileEventType, std::int32_t streamCount,
                wchar_t** addresses, std::uint32_t* ports, wchar_t** hostNames, std::int32_t hintCount,
                wchar_t** hints, const wchar_t* tabTitleStatus, std::uint8_t isNetworkDrive,
                const wchar_t* sha256Hex, const wchar_t* md5Hex, std::uint32_t fileSize,
                const wchar_t* metadataStatus, const wchar_t* extraText) noexcept {
  Report([&] {
    return ActivityJson(fileName, processName, user, endTime, fileEventType, streamCount, addresses, ports,
                        hostNames, hintCount, hints, tabTitleStatus, isNetworkDrive, sha256Hex, md5Hex,
                        fileSize, metadataStatus, extraText);
  });
}

void OnCloudDrive(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user,
                  std::uint64_t endTime, std::uint32_t fileEventType) noexcept {
  Report([&] { return CloudDriveJson(fileName, processName, user, endTime, fileEventType); });
}

// Calls nothing of the library: it may hold locks. A line for which there is no memory is lost.
void OnLog(const wchar_t* text, std::uint32_t level) noexcept {
  try {
    const std::string line = ToUtf8(text);
    application->errors.Note(level, line);
    if (SaysMinifilterIsGone(line)) SetEvent(application->minifilterGone.get());
    application->log.Write(level, line);
  } catch (...) {
  }
}

// Ctrl+C, Ctrl+Break, and the end of the console, session or system. After the latter Windows ends the
// process as soon as the handler returns, so it leaves that to the main thread, which unloads first.
BOOL WINAPI OnControl(DWORD event) {
  SetEvent(application->stop.get());
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(INFINITE);
  return TRUE;
}

// Shows UTF-8 as such while the host runs, and leaves the console as it was.
class Utf8Console {
 public:
  Utf8Console() : previous_(GetConsoleOutputCP()) { SetConsoleOutputCP(CP_UTF8); }
  ~Utf8Console() { SetConsoleOutputCP(previous_); }
  Utf8Console(const Utf8Console&) = delete;
  Utf8Console& operator=(const Utf8Console&) = delete;

 private:
  UINT previous_;
};

void Complain(const std::string& message) {
  LineWriter(GetStdHandle(STD_ERROR_HANDLE)).Write("OstrelHost: " + message);
}

int End(ExitCode exitCode) {
  return static_cast<int>(exitCode);
}

int EndEarly(const CommandLine& commandLine) {
  const bool isError = commandLine.exitCode != ExitCode::Success;
  std::string text = commandLine.text;
  while (!text.empty() && text.back() == '\n') text.pop_back();
  LineWriter writer(GetStdHandle(isError ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE));
  if (!writer.Write(std::move(text)) && !isError) return End(ExitCode::OutputFailed);
  return End(commandLine.exitCode);
}

// Empty without a log file.
std::optional<WindowsHandle> OpenLogFile(const std::wstring& path) {
  if (path.empty()) return WindowsHandle();
  const HANDLE file = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) return WindowsHandle(file);
  Complain("The log file " + ToUtf8(path) + " cannot be opened for writing (error " +
           std::to_string(GetLastError()) + "). Give a path in an existing folder that you may write to.");
  return std::nullopt;
}

int RunHost(const Options& options) {
  std::optional<WindowsHandle> logFile = OpenLogFile(options.logFile);
  if (!logFile) return End(ExitCode::OutputFailed);
  application = new Application(options.logLevel, std::move(*logFile));
  SetConsoleCtrlHandler(OnControl, TRUE);

  Monitor monitor(options, {OnLog, OnActivity, OnCloudDrive}, application->log, application->errors,
                  application->stop.get(), application->minifilterGone.get());
  const ExitCode result = monitor.Run();
  const ExitCode failure = application->failure;
  if (failure != ExitCode::Success) {
    application->log.Write(
        LEVEL_ERROR, "OstrelHost: a detection could not be written to stdout; nothing more is reported.");
  }
  return End(result != ExitCode::Success ? result : failure);
}

int RunQuery(const Query& query, const Options& options) {
  const QueryAnswer answer = query.ask(options);
  LineWriter output(GetStdHandle(STD_OUTPUT_HANDLE));
  if (!output.Write(QueryJson(query.name, answer))) return End(ExitCode::OutputFailed);
  return End(answer.error ? ExitCode::QueryFailed : ExitCode::Success);
}

int RunSelfCheck() {
  const std::vector<Check> checks = JudgeFacts(ObserveMachine());
  LineWriter output(GetStdHandle(STD_OUTPUT_HANDLE));
  for (const Check& check : checks) {
    if (!output.Write(CheckLine(check))) return End(ExitCode::OutputFailed);
  }
  return End(SelfCheckResult(checks));
}

int Run(Options options) {
  MakePathsAbsolute(options);
  EnterProgramFolder();
  if (options.selfCheck) return RunSelfCheck();
  return options.query ? RunQuery(*options.query, options) : RunHost(options);
}

}  // namespace

int wmain(int argumentCount, wchar_t** arguments) {
  try {
    const Utf8Console console;
    const CommandLine commandLine = ParseCommandLine(
        std::vector<std::wstring>(arguments + 1, arguments + argumentCount), LibraryQueries());
    return commandLine.options ? Run(*commandLine.options) : EndEarly(commandLine);
  } catch (const std::exception& error) {
    Complain(std::string("unexpected error: ") + error.what());
    return End(ExitCode::Internal);
  }
}
