#include "current_directory.h"

#include <windows.h>

#include <filesystem>
#include <stdexcept>

namespace ostrel::host {

namespace {

// Longer than any path that Windows takes.
constexpr DWORD LONGEST_PATH = 32768;

void MakeFoldersAbsolute(std::vector<std::wstring>& folders) {
  for (std::wstring& folder : folders) {
    if (!std::filesystem::path(folder).has_root_directory())
      folder = std::filesystem::absolute(folder).wstring();
  }
}

}  // namespace

void MakePathsAbsolute(Options& options) {
  MakeFoldersAbsolute(options.excludedPaths);
  MakeFoldersAbsolute(options.cloudPaths);
  MakeFoldersAbsolute(options.excludedCloudPaths);
  if (!options.logFile.empty()) options.logFile = std::filesystem::absolute(options.logFile).wstring();
}

void EnterProgramFolder() {
  std::wstring path(LONGEST_PATH, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), LONGEST_PATH));
  path.resize(path.rfind(L'\\') + 1);
  if (!path.empty() && SetCurrentDirectoryW(path.c_str())) return;
  throw std::runtime_error("the program's folder cannot be made the current directory, error " +
                           std::to_string(GetLastError()));
}

}  // namespace ostrel::host
