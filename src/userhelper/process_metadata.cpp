#include "userhelper/process_metadata.h"

#include <windows.h>
// Needs windows.h before it.
#include <tlhelp32.h>

#include <cstddef>
#include <iterator>
#include <new>

#include "util/ostrel_filter_lib_util.h"
#include "util/unique_handle.h"

namespace {

struct WindowSearch {
  DWORD processId;
  std::vector<std::wstring>& titles;
};

// One call per top-level window; the first that has a title ends the search.
BOOL CALLBACK TakeTitle(HWND window, LPARAM parameter) {
  const auto& search = *reinterpret_cast<const WindowSearch*>(parameter);
  DWORD owner = 0;
  GetWindowThreadProcessId(window, &owner);
  if (owner != search.processId || !ProcessMetadata::IsMainWindow(window)) return TRUE;
  const int length = GetWindowTextLengthW(window);
  if (length < 1) return TRUE;
  // Nothing may be thrown through the system's own code: without memory the search ends.
  try {
    std::vector<wchar_t> text(static_cast<std::size_t>(length) + 1);
    GetWindowTextW(window, text.data(), length + 1);
    search.titles.emplace_back(text.data());
  } catch (const std::bad_alloc&) {
    return FALSE;
  }
  return FALSE;
}

}  // namespace

const wchar_t* const ProcessMetadata::EDGE_PROCESS_NAME = L"MicrosoftEdgeCP.exe";
const wchar_t* const ProcessMetadata::ALT_EDGE_PROCESS_NAME = L"MicrosoftEdge.exe";
const wchar_t* const ProcessMetadata::APP_FRAME_HOST_NAME = L"ApplicationFrameHost.exe";

ProcessMetadata::ProcessMetadata(ostrel::ULong32 processId, const wchar_t* processName)
    : processId_(processId),
      processName_(processName != nullptr ? processName : L""),
      isEdge_(processName_.find(EDGE_PROCESS_NAME) != std::wstring::npos ||
              processName_.find(ALT_EDGE_PROCESS_NAME) != std::wstring::npos),
      frameHostNames_{APP_FRAME_HOST_NAME} {}

std::vector<std::wstring> ProcessMetadata::GetTabTitles(ResponseCode* code) {
  *code = SUCCESS;
  std::vector<std::wstring> titles;
  if (isEdge_) {
    GetTitleFromEdgeProcess(titles, code);
  } else if (!GetTitleFromProcessId(processId_, titles, code)) {
    GetTitleFromParentId(titles, code);
  }
  return titles;
}

int ProcessMetadata::IsMainWindow(HWND__* window) {
  return GetWindow(window, GW_OWNER) == nullptr && IsWindowVisible(window) ? TRUE : FALSE;
}

void ProcessMetadata::GetTitleFromEdgeProcess(std::vector<std::wstring>& titles, ResponseCode* code) {
  ostrel::ULong32 frameHosts[32] = {};
  int count = 0;
  OstrelFilterLibUtil::GetCurrentProcessIDsToWatch(frameHosts, &count,
                                                   static_cast<int>(std::size(frameHosts)), frameHostNames_);
  if (count == 0) {
    *code = TABTITLE_NOAPP_FRAME_HOST;
    return;
  }
  for (int i = 0; i < count; ++i) {
    if (GetTitleFromProcessId(frameHosts[i], titles, code)) return;
  }
  *code = TABTITLE_MAIN_WINDOWS_NOT_FOUND;
}

bool ProcessMetadata::GetTitleFromParentId(std::vector<std::wstring>& titles, ResponseCode* code) {
  const ostrel::UniqueFileHandle processes(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W process{};
  process.dwSize = sizeof(process);
  if (processes && Process32FirstW(processes.Get(), &process)) {
    do {
      if (process.th32ProcessID != processId_) continue;
      FindMainWindowTitle(process.th32ParentProcessID, titles);
      break;
    } while (Process32NextW(processes.Get(), &process));
  }
  if (titles.empty()) *code = TABTITLE_MAIN_WINDOWS_NOT_FOUND;
  return !titles.empty();
}

bool ProcessMetadata::GetTitleFromProcessId(ostrel::ULong32 processId, std::vector<std::wstring>& titles,
                                            ResponseCode* /*code*/) {
  FindMainWindowTitle(processId, titles);
  return !titles.empty();
}

void ProcessMetadata::FindMainWindowTitle(ostrel::ULong32 processId, std::vector<std::wstring>& titles) {
  WindowSearch search{processId, titles};
  EnumWindows(TakeTitle, reinterpret_cast<LPARAM>(&search));
}
