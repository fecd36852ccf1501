// The smallest host that does something: prints what chrome.exe uploads and downloads until Enter is pressed.
#include <api/exports.h>

#include <clocale>
#include <cstdio>

namespace {

// Runs on whatever thread of the library has something to say, on several at once.
void OnLog(const wchar_t* text, std::uint32_t level) {
  std::fwprintf(stderr, L"%u %ls\n", level, text);
}

// Runs on the library's disk event thread, one call at a time. Everything it is given is gone when it
// returns.
void OnActivity(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user, std::uint64_t,
                std::uint32_t fileEventType, std::int32_t, wchar_t**, std::uint32_t*, wchar_t**, std::int32_t,
                wchar_t**, const wchar_t*, std::uint8_t, const wchar_t*, const wchar_t*, std::uint32_t,
                const wchar_t*, const wchar_t*) {
  std::wprintf(L"%ls of %ls by %ls (%ls)\n", fileEventType == 0 ? L"Upload" : L"Download", fileName, user,
               processName);
  std::fflush(stdout);
}

}  // namespace

int main() {
  // For file names beyond ASCII.
  std::setlocale(LC_ALL, "");
  // Level 3 shows failures only; 6 shows what happens, 7 every event.
  if (!LoadDriver(OnLog, 3)) return 1;
  const wchar_t* processes[] = {L"chrome.exe"};
  if (EnableActivityDetection(OnActivity, L"", processes, 1, nullptr, 0, 0, false, true)) {
    std::puts("Watching. Press Enter to end.");
    std::fflush(stdout);
    std::getchar();
    DisableActivityDetection();
  }
  return UnloadDriver() ? 0 : 1;
}
