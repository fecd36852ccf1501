#ifndef OSTREL_TESTS_SUPPORT_LIBRARY_COPY_H
#define OSTREL_TESTS_SUPPORT_LIBRARY_COPY_H

#include <windows.h>

#include <optional>
#include <string>

#include "api/exports.h"
#include "support/import_table.h"

namespace ostrel::test {

// OstrelFilterLib.dll from a folder of its own: a separate module, with process-wide state that no other test
// has touched. Unlike for a host it goes at the end: its wish to stay in the process is refused, and a test
// that lets it start threads sees to their end.
class LibraryCopy {
 public:
  LibraryCopy();
  LibraryCopy(const LibraryCopy&) = delete;
  LibraryCopy& operator=(const LibraryCopy&) = delete;
  ~LibraryCopy();

  HMODULE Module() const { return module_; }
  const std::wstring& Directory() const { return directory_; }

  // The built library, of which this is a copy.
  static std::wstring OriginalPath();

  template <typename Function>
  Function Find(const char* name) const {
    return reinterpret_cast<Function>(FindAny(name));
  }

 private:
  // Throws when the library does not export the name.
  void* FindAny(const char* name) const;

  std::wstring directory_;
  HMODULE module_ = nullptr;
  std::optional<ImportPatch> stay_;

 public:
  decltype(&::LoadDriver) LoadDriver;
  decltype(&::UnloadDriver) UnloadDriver;
  decltype(&::EnableActivityDetection) EnableActivityDetection;
  decltype(&::DisableActivityDetection) DisableActivityDetection;
  decltype(&::EnablePCDDetection) EnablePCDDetection;
  decltype(&::DisablePCDDetection) DisablePCDDetection;
  decltype(&::EnableRemoteAddressInfo) EnableRemoteAddressInfo;
  decltype(&::DisableRemoteAddressInfo) DisableRemoteAddressInfo;
  decltype(&::UpdateProcesses) UpdateProcesses;
  decltype(&::EnableTabTitles) EnableTabTitles;
  decltype(&::DisableTabTitles) DisableTabTitles;
  decltype(&::DeallocStringPointer) DeallocStringPointer;
};

// The folder of the running program.
std::wstring ProgramDirectory();

}  // namespace ostrel::test

#endif
