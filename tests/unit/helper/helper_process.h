#ifndef OSTREL_TESTS_UNIT_HELPER_HELPER_PROCESS_H
#define OSTREL_TESTS_UNIT_HELPER_HELPER_PROCESS_H

#include <windows.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "util/unique_handle.h"

namespace ostrel_test {

// How long a test waits for what must happen before it fails.
constexpr std::chrono::seconds PATIENCE{30};

// Different for every call.
std::wstring NewChannelName();
std::wstring PipeName(const std::wstring& channelName);

// Waits until somebody has created the pipe and nobody is connected to it.
bool WaitForPipe(const std::wstring& channelName);

// What CallNamedPipeW makes of it: the reply, or the error.
struct Exchange {
  DWORD error = ERROR_SUCCESS;
  std::wstring reply;
};

// As the library does it: the reply is the zero-terminated text in a zeroed buffer of so many bytes.
Exchange Ask(const std::wstring& channelName, const std::wstring& request, DWORD replyBytes);
Exchange AskInBytes(const std::wstring& channelName, const void* request, DWORD requestBytes,
                    DWORD replyBytes);

// A client's end of the pipe, without a word.
ostrel::UniqueFileHandle Connect(const std::wstring& channelName);

// Waits until the other end has written something, and leaves it there.
bool WaitForBytes(HANDLE pipe);

// OstrelUserHelper.exe with the whole command line of the test's choosing. Ended with this object if it still
// runs.
class HelperProcess {
 public:
  explicit HelperProcess(const std::wstring& wholeCommandLine);
  HelperProcess(const HelperProcess&) = delete;
  HelperProcess& operator=(const HelperProcess&) = delete;
  ~HelperProcess();

  std::size_t ThreadCount() const;
  void SuspendFirstThread();

  // Nothing when it still runs at the deadline.
  std::optional<DWORD> ExitCode();

  // Once it has ended.
  std::string Output();
  std::string Errors();

 private:
  ostrel::UniqueKernelHandle process_;
  ostrel::UniqueKernelHandle firstThread_;
  ostrel::UniqueKernelHandle output_;
  ostrel::UniqueKernelHandle errors_;
};

std::filesystem::path HelperProgram();

}  // namespace ostrel_test

#endif
