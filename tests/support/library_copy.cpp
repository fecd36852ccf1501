#include "support/library_copy.h"

#include <filesystem>
#include <stdexcept>
#include <string>

namespace ostrel::test {

namespace {

constexpr wchar_t LIBRARY_NAME[] = L"OstrelFilterLib.dll";

std::wstring MakeDirectory() {
  static int number = 0;
  const auto directory = std::filesystem::temp_directory_path() / L"ostrel-library-copies" /
                         (std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++number));
  // A program that crashed may have left its own, under an id that is in use again.
  std::filesystem::remove_all(directory);
  std::filesystem::create_directories(directory);
  return directory.wstring();
}

BOOL WINAPI RefuseToStay(DWORD, const wchar_t*, HMODULE*) {
  return FALSE;
}

}  // namespace

std::wstring ProgramDirectory() {
  wchar_t path[1024] = {};
  GetModuleFileNameW(nullptr, path, 1024);
  return std::filesystem::path(path).parent_path().wstring();
}

std::wstring LibraryCopy::OriginalPath() {
  return (std::filesystem::path(ProgramDirectory()) / OSTREL_STAGE_FROM_PROGRAM / LIBRARY_NAME).wstring();
}

LibraryCopy::LibraryCopy() : directory_(MakeDirectory()) {
  const std::wstring copy = directory_ + L"\\" + LIBRARY_NAME;
  if (!CopyFileW(OriginalPath().c_str(), copy.c_str(), TRUE)) {
    throw std::runtime_error("the library cannot be copied: " + std::to_string(GetLastError()));
  }
  module_ = LoadLibraryW(copy.c_str());
  if (module_ == nullptr) {
    throw std::runtime_error("the copy of the library cannot be loaded: " + std::to_string(GetLastError()));
  }
  stay_.emplace(module_, "GetModuleHandleExW", reinterpret_cast<void*>(&RefuseToStay));
  LoadDriver = Find<decltype(LoadDriver)>("LoadDriver");
  UnloadDriver = Find<decltype(UnloadDriver)>("UnloadDriver");
  EnableActivityDetection = Find<decltype(EnableActivityDetection)>("EnableActivityDetection");
  DisableActivityDetection = Find<decltype(DisableActivityDetection)>("DisableActivityDetection");
  EnablePCDDetection = Find<decltype(EnablePCDDetection)>("EnablePCDDetection");
  DisablePCDDetection = Find<decltype(DisablePCDDetection)>("DisablePCDDetection");
  EnableRemoteAddressInfo = Find<decltype(EnableRemoteAddressInfo)>("EnableRemoteAddressInfo");
  DisableRemoteAddressInfo = Find<decltype(DisableRemoteAddressInfo)>("DisableRemoteAddressInfo");
  UpdateProcesses = Find<decltype(UpdateProcesses)>("UpdateProcesses");
  EnableTabTitles = Find<decltype(EnableTabTitles)>("EnableTabTitles");
  DisableTabTitles = Find<decltype(DisableTabTitles)>("DisableTabTitles");
  DeallocStringPointer = Find<decltype(DeallocStringPointer)>("DeallocStringPointer");
}

LibraryCopy::~LibraryCopy() {
  stay_.reset();
  FreeLibrary(module_);
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void* LibraryCopy::FindAny(const char* name) const {
  const FARPROC found = GetProcAddress(module_, name);
  if (found == nullptr) throw std::runtime_error(std::string("the library does not export ") + name);
  return reinterpret_cast<void*>(found);
}

}  // namespace ostrel::test
