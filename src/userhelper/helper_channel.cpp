#include "userhelper/helper_channel.h"

#include <windows.h>

#include <vector>

#include "log/log.h"
#include "userhelper/helper_launcher.h"
#include "userhelper/proc_util_exception.h"
#include "userhelper/random_hex_id.h"

namespace ostrel {

namespace {

constexpr wchar_t PIPE_NAME_PREFIX[] = L"\\\\.\\pipe\\OstrelUserHelper\\";
constexpr int MOST_ATTEMPTS = 40;
constexpr DWORD PAUSE_MILLISECONDS = 50;

bool WaitForPipe(const std::wstring& pipeName) {
  int attempts = 0;
  for (bool isReady = false; !isReady && attempts < MOST_ATTEMPTS;) {
    isReady = WaitNamedPipeW(pipeName.c_str(), NMPWAIT_USE_DEFAULT_WAIT) != 0;
    ++attempts;
    Sleep(PAUSE_MILLISECONDS);
  }
  // The last attempt is one too late, even when it found the pipe.
  return attempts != MOST_ATTEMPTS;
}

}  // namespace

std::wstring ConnectToUserHelper(std::wstring commandId, std::wstring /*responseId*/, std::wstring& status) {
  const std::wstring channelName = GenerateRandomHexId();
  if (SpawnUserHelper(commandId, channelName, status) == 0) {
    Log(LOG_ERROR, L"Could not successfully spawn a sub-process");
    throw ProcUtilException();
  }
  std::wstring pipeName = PIPE_NAME_PREFIX + channelName;
  if (!WaitForPipe(pipeName)) {
    status = L"PIPE_NOT_AVAILABLE";
    Log(LOG_ERROR, L"Could not get information. Remote pipe not available");
    throw ProcUtilException();
  }
  return pipeName;
}

bool Exchange(const std::wstring& pipeName, const std::wstring& request, const ExchangeLimits& limits,
              std::wstring& reply, ULong32& error) {
  // One unit more than the helper can fill: the text ends in any case.
  std::vector<wchar_t> buffer(limits.replyBytes / sizeof(wchar_t) + 1);
  std::wstring sent = request;
  DWORD received = 0;
  if (!CallNamedPipeW(pipeName.c_str(), sent.data(), static_cast<DWORD>(sent.size() * sizeof(wchar_t)),
                      buffer.data(), limits.replyBytes, &received, limits.timeOutMilliseconds)) {
    // Now: freeing the buffers may change it.
    error = GetLastError();
    return false;
  }
  reply = buffer.data();
  return true;
}

}  // namespace ostrel
