// Under the name of the user helper, a program that misbehaves as a test has chosen.

#include "stand_in_helper.h"

#include <windows.h>

#include <cstddef>
#include <stdexcept>
#include <string>

#include "util/unique_handle.h"

namespace {

using namespace ostrel::test;
using ostrel::UniqueFileHandle;
using ostrel::UniqueKernelHandle;

constexpr DWORD LONGEST_LIFE_MILLISECONDS = 30'000;
constexpr DWORD BUFFER_BYTES = 64 * 1024;

std::wstring Variable(const wchar_t* name) {
  std::wstring value(32'768, L'\0');
  value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
  return value;
}

// Whatever a test has chosen, no process is left over.
DWORD WINAPI EndInTime(void*) {
  Sleep(LONGEST_LIFE_MILLISECONDS);
  TerminateProcess(GetCurrentProcess(), 99);
  return 0;
}

void WaitUntilOver() {
  const UniqueKernelHandle over(CreateEventW(nullptr, TRUE, FALSE, OVER_EVENT));
  WaitForSingleObject(over.Get(), INFINITE);
}

void Replace(std::wstring& text, const std::wstring& mark, const std::wstring& replacement) {
  const std::size_t at = text.find(mark);
  if (at != std::wstring::npos) text.replace(at, mark.size(), replacement);
}

// A request begins with its version, its type, and the two identifiers as counted texts, of which this is the
// second.
std::wstring CountedIdentifier(const std::wstring& request) {
  std::size_t at = request.find(L',', request.find(L',') + 1) + 1;
  const std::size_t commandIdLength = std::stoul(request.substr(at));
  at = request.find(L',', at) + 1 + commandIdLength + 1;
  const std::size_t lengthEnd = request.find(L',', at) + 1;
  return request.substr(at, lengthEnd - at + std::stoul(request.substr(at)));
}

class Pipe {
 public:
  explicit Pipe(const std::wstring& channelName)
      : pipe_(CreateNamedPipeW((L"\\\\.\\pipe\\OstrelUserHelper\\" + channelName).c_str(), PIPE_ACCESS_DUPLEX,
                               PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, 1, BUFFER_BYTES,
                               BUFFER_BYTES, 0, nullptr)) {
    if (!pipe_) throw std::runtime_error("no pipe");
  }

  std::wstring Hear() {
    ConnectNamedPipe(pipe_.Get(), nullptr);
    std::wstring request(BUFFER_BYTES / sizeof(wchar_t), L'\0');
    DWORD length = 0;
    if (!ReadFile(pipe_.Get(), request.data(), BUFFER_BYTES, &length, nullptr)) {
      throw std::runtime_error("no request");
    }
    request.resize(length / sizeof(wchar_t));
    return request;
  }

  void Say(const std::wstring& reply) {
    DWORD written = 0;
    WriteFile(pipe_.Get(), reply.data(), static_cast<DWORD>(reply.size() * sizeof(wchar_t)), &written,
              nullptr);
  }

  void WaitUntilClosed() {
    std::byte more{};
    DWORD length = 0;
    ReadFile(pipe_.Get(), &more, 1, &length, nullptr);
  }

 private:
  UniqueFileHandle pipe_;
};

std::wstring Reply(const std::wstring& request) {
  std::wstring reply = Variable(REPLY_VARIABLE);
  Replace(reply, IDENTIFIER_MARK, CountedIdentifier(request));
  const std::wstring units = Variable(UNITS_VARIABLE);
  if (!units.empty()) reply.resize(std::stoul(units), FILLER);
  return reply;
}

void Answer(Pipe& pipe, DWORD pauseMilliseconds = 0) {
  const std::wstring reply = Reply(pipe.Hear());
  Sleep(pauseMilliseconds);
  pipe.Say(reply);
  pipe.WaitUntilClosed();
}

void AnswerTwice(Pipe& pipe) {
  const std::wstring reply = Reply(pipe.Hear());
  pipe.Say(reply);
  pipe.Say(reply);
  pipe.WaitUntilClosed();
}

std::wstring ExitCodeOf(const std::wstring& program, std::wstring commandLine) {
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                      nullptr, &startup, &started)) {
    return L"none";
  }
  const UniqueKernelHandle thread(started.hThread);
  const UniqueKernelHandle process(started.hProcess);
  WaitForSingleObject(process.Get(), INFINITE);
  DWORD exitCode = 0;
  GetExitCodeProcess(process.Get(), &exitCode);
  return std::to_wstring(exitCode);
}

// The helper comes second, and its launcher asks whoever came first.
void TakeTheName(const std::wstring& commandLine, const std::wstring& channelName) {
  Pipe pipe(channelName);
  const std::wstring exitCode = ExitCodeOf(Variable(RIVAL_VARIABLE), commandLine);
  std::wstring reply = Reply(pipe.Hear());
  Replace(reply, EXIT_CODE_MARK, exitCode);
  pipe.Say(reply);
  pipe.WaitUntilClosed();
}

void MakeThePipeTooLate(const std::wstring& channelName) {
  WaitUntilOver();
  const Pipe pipe(channelName);
}

void HearAndEnd(Pipe& pipe, DWORD pauseMilliseconds = 0) {
  pipe.Hear();
  Sleep(pauseMilliseconds);
}

void Behave(const std::wstring& behaviour, const std::wstring& commandLine) {
  const std::wstring channelName = commandLine.substr(commandLine.find(L' ') + 1);
  if (behaviour == END_AT_ONCE) return;
  if (behaviour == HANG) return WaitUntilOver();
  if (behaviour == MAKE_THE_PIPE_TOO_LATE) return MakeThePipeTooLate(channelName);
  if (behaviour == TAKE_THE_NAME) return TakeTheName(commandLine, channelName);
  if (behaviour == MAKE_THE_PIPE_LATE) Sleep(LATE_PIPE_MILLISECONDS);
  Pipe pipe(channelName);
  if (behaviour == HEAR_AND_END) return HearAndEnd(pipe);
  if (behaviour == HEAR_AND_HANG) return HearAndEnd(pipe, LATE_ANSWER_MILLISECONDS);
  if (behaviour == ANSWER_TWICE) return AnswerTwice(pipe);
  Answer(pipe, behaviour == ANSWER_LATE ? LATE_ANSWER_MILLISECONDS : 0);
  if (behaviour == ANSWER_AND_STAY) WaitUntilOver();
}

}  // namespace

int main() {
  const UniqueKernelHandle watchdog(CreateThread(nullptr, 0, EndInTime, nullptr, 0, nullptr));
  try {
    Behave(Variable(BEHAVIOUR_VARIABLE), GetCommandLineW());
    return 0;
  } catch (const std::exception&) {
    return 1;
  }
}
